# What a binary for Windows has beside its code: version, manifest and the texts of the event log as resources, and its
# debug information in a file of its own, debug/NAME.debug in the build's folder.

# DESCRIPTION: what it is, in words. VERSION: the file's, else the product's. MESSAGES: a file for windmc.
function(zorv_windows_binary target)
    if(NOT WIN32)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 BINARY "" "DESCRIPTION;VERSION;MESSAGES" "")
    if(NOT BINARY_VERSION)
        set(BINARY_VERSION ${ZORV_SERVICE_VERSION})
    endif()
    set(BINARY_NAME $<TARGET_FILE_NAME:${target}>)
    string(REPLACE . , BINARY_FILE_NUMBERS ${BINARY_VERSION})
    string(REPLACE . , BINARY_PRODUCT_NUMBERS ${ZORV_SERVICE_VERSION})

    set(folder ${PROJECT_BINARY_DIR}/generated/${target}_resources)
    set(templates ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/windows_binary)
    set(made ${folder}/version.rc)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL EXECUTABLE)
        set(BINARY_FILE_TYPE VFT_APP)
        configure_file(${templates}.manifest.in ${folder}/executable.manifest @ONLY)
        list(APPEND made ${folder}/executable.manifest)
        string(APPEND BINARY_MORE "1 24 \"executable.manifest\"\n")
    else()
        set(BINARY_FILE_TYPE VFT_DLL)  # Windows reads the manifest of the application
    endif()
    if(BINARY_MESSAGES)
        find_program(ZORV_WINDMC x86_64-w64-mingw32-windmc REQUIRED)
        get_filename_component(name ${BINARY_MESSAGES} NAME_WE)
        set(messages ${folder}/${name}.rc)
        add_custom_command(
            OUTPUT ${messages}
            COMMAND ${ZORV_WINDMC} -b -h . -r . ${BINARY_MESSAGES}
            DEPENDS ${BINARY_MESSAGES}
            WORKING_DIRECTORY ${folder}
            VERBATIM
        )
        string(APPEND BINARY_MORE "#include \"${name}.rc\"\n")
    endif()
    configure_file(${templates}.rc.in ${folder}/template.rc @ONLY)
    file(GENERATE OUTPUT ${folder}/version.rc INPUT ${folder}/template.rc)

    set(object ${folder}/resources.obj)
    add_custom_command(
        OUTPUT ${object}
        COMMAND ${CMAKE_RC_COMPILER} -O coff version.rc resources.obj
        DEPENDS ${made} ${messages}
        WORKING_DIRECTORY ${folder}
        VERBATIM
    )
    set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
    target_sources(${target} PRIVATE ${object})

    set(debug ${PROJECT_BINARY_DIR}/debug)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E make_directory ${debug}
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --only-keep-debug $<TARGET_FILE:${target}> ${debug}/${BINARY_NAME}.debug
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --strip-all --add-gnu-debuglink=${debug}/${BINARY_NAME}.debug
            $<TARGET_FILE:${target}>
        VERBATIM
    )
    if(PROJECT_IS_TOP_LEVEL)
        install(FILES ${debug}/${BINARY_NAME}.debug DESTINATION . COMPONENT debug EXCLUDE_FROM_ALL)
    endif()
endfunction()
