// NDKs that one only reads.
#ifndef CONSOLE_HOST_SERVICES_READ_ONLY_H
#define CONSOLE_HOST_SERVICES_READ_ONLY_H

namespace ndk_integrate {

// While this object lives and `accepted` is true, is_writable answers true for every directory: the
// plug-in then judges an NDK without looking at whether it can be written to. One at a time.
class ReadOnlyAccepted {
 public:
  explicit ReadOnlyAccepted(bool accepted);
  ~ReadOnlyAccepted();
  ReadOnlyAccepted(const ReadOnlyAccepted&) = delete;
  ReadOnlyAccepted& operator=(const ReadOnlyAccepted&) = delete;
};

}  // namespace ndk_integrate

#endif
