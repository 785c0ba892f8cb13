template <typename Number>
static Number twice(Number number) {
  return number + number;
}

extern "C" int answer() { return twice(21); }
