# Run by cpack when the files of all packages lie in place: manual pages and change logs are compressed, as in every
# package of the distributions. Without name and time (-n), so that the same sources give the same bytes.
file(GLOB_RECURSE documents ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man*/*
     ${CPACK_TEMPORARY_DIRECTORY}/*/changelog)
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)
