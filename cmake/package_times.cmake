# Run by CPack on the folder that it makes a package of: its files get the date in SOURCE_DATE_EPOCH, where one is set, so
# that the same files make the same package.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch --no-dereference -d @$ENV{SOURCE_DATE_EPOCH} {} +
        COMMAND_ERROR_IS_FATAL ANY)
endif()
