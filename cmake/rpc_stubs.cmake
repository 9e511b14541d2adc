# Windows only: generates the RPC stubs of the local endpoint, for client and server, from sdk/zorvalis.idl by widl and
# tools/rpc_stubs.py.
find_program(ZORV_PYTHON python3 REQUIRED)
find_program(ZORV_WIDL x86_64-w64-mingw32-widl)
if(NOT ZORV_WIDL)
    message(FATAL_ERROR "x86_64-w64-mingw32-widl is missing: run ./dev setup windows")
endif()

set(ZORV_RPC ${CMAKE_BINARY_DIR}/generated/rpc)
foreach(side client server)
    set(ZORV_RPC_${side} ${ZORV_RPC}/zorvalis_rpc_${side}.c ${ZORV_RPC}/zorvalis_rpc_${side}_callback.c)
endforeach()
add_custom_command(
    OUTPUT ${ZORV_RPC_client} ${ZORV_RPC_server} ${ZORV_RPC}/zorvalis_rpc.h
    COMMAND ${ZORV_PYTHON} ${CMAKE_SOURCE_DIR}/tools/rpc_stubs.py ${CMAKE_SOURCE_DIR}/sdk/zorvalis.idl ${ZORV_RPC}
        ${ZORV_WIDL}
    DEPENDS ${CMAKE_SOURCE_DIR}/tools/rpc_stubs.py ${CMAKE_SOURCE_DIR}/sdk/zorvalis.idl
    VERBATIM
)
add_custom_target(zorvalis_rpc_stubs
    DEPENDS ${ZORV_RPC_client} ${ZORV_RPC_server} ${ZORV_RPC}/zorvalis_rpc.h)

# Adds the stubs of one side, client or server, to a library. Their warnings are off: the code is widl's.
function(zorv_add_rpc_stubs library side)
    set_source_files_properties(${ZORV_RPC_${side}} TARGET_DIRECTORY ${library} PROPERTIES COMPILE_OPTIONS -w)
    target_sources(${library} PRIVATE ${ZORV_RPC_${side}})
    target_include_directories(${library} SYSTEM PRIVATE ${ZORV_RPC})
    add_dependencies(${library} zorvalis_rpc_stubs)
endfunction()
