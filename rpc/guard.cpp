#include "guard.h"

#include <windows.h>

// A function with an exception handler in assembler, since g++ has no __try. The handler unwinds to the landing, where
// the raised status is in eax, the register of the function's result.
asm(R"(
    .text
    .globl zorv_guard_call
    .def zorv_guard_call; .scl 2; .type 32; .endef
    .seh_proc zorv_guard_call
zorv_guard_call:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    movq %rcx, %rax
    movq %rdx, %rcx
    callq *%rax
    xorl %eax, %eax
    .globl zorv_guard_landing
zorv_guard_landing:
    addq $40, %rsp
    retq
    .seh_handler zorv_guard_handler, @except
    .seh_endproc
)");
extern "C" DWORD zorv_guard_call(void (*call)(void*), void* context);
extern "C" char zorv_guard_landing[];

namespace {

// Windows calls the handler a second time while it unwinds, when nothing is left to decide.
bool is_unwinding(const EXCEPTION_RECORD* record) {
    constexpr DWORD kUnwinding = 0x66;
    return (record->ExceptionFlags & kUnwinding) != 0;
}

// A stack overflow, after which the process must not go on, or a breakpoint, for which a debugger waits: these are not
// caught. The other end of a call may send the same codes as its fault; the RPC runtime raises those as
// noncontinuable, which tells them apart.
bool is_processors_own(const EXCEPTION_RECORD* record) {
    const DWORD code = record->ExceptionCode;
    return (code == EXCEPTION_STACK_OVERFLOW || code == EXCEPTION_BREAKPOINT) &&
           (record->ExceptionFlags & EXCEPTION_NONCONTINUABLE) == 0;
}

}  // namespace

extern "C" {

// Catches every other code: a fault carries whatever code the other end chose.
__attribute__((used)) EXCEPTION_DISPOSITION zorv_guard_handler(EXCEPTION_RECORD* record, void* frame, CONTEXT*,
                                                               DISPATCHER_CONTEXT* dispatcher) {
    if (!is_unwinding(record) && !is_processors_own(record)) {
        ::RtlUnwindEx(frame, zorv_guard_landing, record, reinterpret_cast<void*>(ULONG_PTR{record->ExceptionCode}),
                      dispatcher->ContextRecord, dispatcher->HistoryTable);
    }
    return ExceptionContinueSearch;
}
}

namespace zorvalis_rpc {

std::uint32_t Guarded(void (*call)(void*), void* context) {
    return zorv_guard_call(call, context);
}

}  // namespace zorvalis_rpc
