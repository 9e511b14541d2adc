#include "platform/windows/rpc_guard.h"

#include <windows.h>

// A frame with an exception handler, which this compiler has no words for. The handler unwinds to the landing, with the
// status in the place of the call's result.
#define GUARDED_CALL(name)                                            \
    asm("    .text\n"                                                 \
        "    .globl " #name                                           \
        "_call\n"                                                     \
        "    .def " #name                                             \
        "_call; .scl 2; .type 32; .endef\n"                           \
        "    .seh_proc " #name "_call\n" #name                        \
        "_call:\n"                                                    \
        "    subq $40, %rsp\n"                                        \
        "    .seh_stackalloc 40\n"                                    \
        "    .seh_endprologue\n"                                      \
        "    movq %rcx, %rax\n"                                       \
        "    movq %rdx, %rcx\n"                                       \
        "    callq *%rax\n"                                           \
        "    xorl %eax, %eax\n"                                       \
        "    .globl " #name "_landing\n" #name                        \
        "_landing:\n"                                                 \
        "    addq $40, %rsp\n"                                        \
        "    retq\n"                                                  \
        "    .seh_handler " #name                                     \
        "_handler, @except\n"                                         \
        "    .seh_endproc\n");                                        \
    extern "C" DWORD name##_call(void (*call)(void*), void* context); \
    extern "C" char name##_landing[];

GUARDED_CALL(zorv_status_guard)
GUARDED_CALL(zorv_callback_guard)

namespace {

bool is_unwinding(const EXCEPTION_RECORD* record) {
    constexpr DWORD kUnwinding = 0x66;
    return (record->ExceptionFlags & kUnwinding) != 0;
}

void land(void* landing, EXCEPTION_RECORD* record, void* frame, DISPATCHER_CONTEXT* dispatcher) {
    ::RtlUnwindEx(frame, landing, record, reinterpret_cast<void*>(ULONG_PTR{record->ExceptionCode}),
                  dispatcher->ContextRecord, dispatcher->HistoryTable);
}

}  // namespace

extern "C" {

// Statuses of the runtime are small numbers. All else, a fault of memory or an exception of C++, is not for us.
__attribute__((used)) EXCEPTION_DISPOSITION zorv_status_guard_handler(EXCEPTION_RECORD* record, void* frame, CONTEXT*,
                                                                      DISPATCHER_CONTEXT* dispatcher) {
    constexpr DWORD kStatuses = 0x10000;
    if (!is_unwinding(record) && record->ExceptionCode < kStatuses) {
        land(zorv_status_guard_landing, record, frame, dispatcher);
    }
    return ExceptionContinueSearch;
}

// What a client's callback raises comes back under its own code, whatever it is.
__attribute__((used)) EXCEPTION_DISPOSITION zorv_callback_guard_handler(EXCEPTION_RECORD* record, void* frame, CONTEXT*,
                                                                        DISPATCHER_CONTEXT* dispatcher) {
    const DWORD code = record->ExceptionCode;
    if (!is_unwinding(record) && code != EXCEPTION_STACK_OVERFLOW && code != EXCEPTION_BREAKPOINT) {
        land(zorv_callback_guard_landing, record, frame, dispatcher);
    }
    return ExceptionContinueSearch;
}
}

namespace platform {

std::uint32_t rpc_guarded(void (*call)(void*), void* context) {
    return zorv_status_guard_call(call, context);
}

std::uint32_t callback_guarded(void (*call)(void*), void* context) {
    return zorv_callback_guard_call(call, context);
}

}  // namespace platform
