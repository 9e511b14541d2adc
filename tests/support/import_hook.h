// Replaces a system function in the test program's own import table until the end of a scope: for what Wine only stubs
// and for calls that do not fail by themselves. The libraries of the system keep calling the true function.
#pragma once

#include <windows.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>

class ImportHook {
public:
    // `function` is the imported function itself, for its type.
    template <class Function>
    ImportHook(const char* name, Function*, std::type_identity_t<Function>* replacement) : slot_(slot_of(name)) {
        truth_ = *slot_;
        fill(reinterpret_cast<ULONGLONG>(replacement));
    }
    ~ImportHook() { fill(truth_); }
    ImportHook(const ImportHook&) = delete;
    ImportHook& operator=(const ImportHook&) = delete;

    // What the table holds now. The plain address of a function would lead back through the table.
    template <class Function>
    static Function* imported(const char* name, Function*) {
        return reinterpret_cast<Function*>(*slot_of(name));
    }

private:
    static ULONGLONG* slot_of(const char* name) {
        BYTE* const image = reinterpret_cast<BYTE*>(::GetModuleHandleW(nullptr));
        const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
        const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(image + dos->e_lfanew);
        const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
        const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
        for (; library->Name != 0; ++library) {
            const auto* const names = reinterpret_cast<const ULONGLONG*>(image + library->OriginalFirstThunk);
            for (std::size_t i = 0; names[i] != 0; ++i) {
                const auto* const entry = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + names[i]);
                if (!IMAGE_SNAP_BY_ORDINAL64(names[i]) && std::strcmp(entry->Name, name) == 0) {
                    return reinterpret_cast<ULONGLONG*>(image + library->FirstThunk) + i;
                }
            }
        }
        throw std::runtime_error(std::string("not imported: ") + name);
    }

    void fill(ULONGLONG address) {
        DWORD before = 0;
        ::VirtualProtect(slot_, sizeof *slot_, PAGE_READWRITE, &before);
        *slot_ = address;
        ::VirtualProtect(slot_, sizeof *slot_, before, &before);
    }

    ULONGLONG* slot_;
    ULONGLONG truth_;
};

#define HOOK(name, function) const ImportHook name##Hook(#name, ::name, function)
#define IMPORTED(name) ImportHook::imported(#name, ::name)
