#include "platform/windows/rpc_guard.h"

#include <windows.h>

// One frame with an exception handler, which this compiler has no words for. The handler unwinds to the landing, with
// the status in the place of the call's result.
asm(R"(
    .text
    .globl zorv_rpc_guarded_call
    .def zorv_rpc_guarded_call; .scl 2; .type 32; .endef
    .seh_proc zorv_rpc_guarded_call
zorv_rpc_guarded_call:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq %rcx, %rax
    movq %rdx, %rcx
    callq *%rax
    xorl %eax, %eax
    .globl zorv_rpc_guard_landing
zorv_rpc_guard_landing:
    addq $40, %rsp
    retq
    .seh_handler zorv_rpc_guard_handler, @except
    .seh_endproc
)");

extern "C" {

DWORD zorv_rpc_guarded_call(void (*call)(void*), void* context);
extern char zorv_rpc_guard_landing[];

// Statuses of the runtime are small numbers. All else, a fault of memory or an exception of C++, is not for us.
__attribute__((used)) EXCEPTION_DISPOSITION zorv_rpc_guard_handler(EXCEPTION_RECORD* record, void* frame, CONTEXT*,
                                                                   DISPATCHER_CONTEXT* dispatcher) {
    constexpr DWORD kUnwinding = 0x66;
    constexpr DWORD kStatuses = 0x10000;
    if ((record->ExceptionFlags & kUnwinding) == 0 && record->ExceptionCode < kStatuses) {
        ::RtlUnwindEx(frame, zorv_rpc_guard_landing, record, reinterpret_cast<void*>(ULONG_PTR{record->ExceptionCode}),
                      dispatcher->ContextRecord, dispatcher->HistoryTable);
    }
    return ExceptionContinueSearch;
}
}

namespace platform {

std::uint32_t rpc_guarded(void (*call)(void*), void* context) {
    return zorv_rpc_guarded_call(call, context);
}

}  // namespace platform
