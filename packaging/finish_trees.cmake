# Run by cpack when the files of all packages lie in place: manual pages and change logs are compressed, as in every
# package of the distributions. Without name and time (-n), so that the same sources give the same bytes.
set(trees ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share)
file(GLOB_RECURSE documents ${trees}/man/man*/* ${trees}/changelog)
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)

if(NOT CPACK_GENERATOR STREQUAL DEB)
  file(GLOB only_for_debian ${trees}/lintian)
  file(REMOVE_RECURSE ${only_for_debian})
endif()
