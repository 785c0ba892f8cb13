# Read by cpack before it makes a package. The files' times are that of the newest entry of the change log, so that the
# same sources give the same bytes.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(
    COMMAND dpkg-parsechangelog --file ${CMAKE_CURRENT_LIST_DIR}/debian/changelog --show-field Timestamp
    OUTPUT_VARIABLE timestamp
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${timestamp})
endif()
