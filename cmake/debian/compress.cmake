# What Debian keeps compressed, in the folders that packages are made of.
file(GLOB_RECURSE files ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*.1
  ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog*)
execute_process(COMMAND gzip --best --no-name --force ${files} COMMAND_ERROR_IS_FATAL ANY)
