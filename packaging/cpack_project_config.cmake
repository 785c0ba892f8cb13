# Read by cpack before it makes a package. The files' times are that of the newest entry of the change log, so that the
# same sources give the same bytes.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog signatures REGEX "^ -- ")
  list(GET signatures 0 newest)
  string(REGEX REPLACE "^.*>  " "" time ${newest})
  execute_process(
    COMMAND date --date ${time} +%s
    OUTPUT_VARIABLE seconds
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
