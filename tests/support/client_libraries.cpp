// Stand-ins for the two closed libraries behind client calls, in one source: ChkReg records each consent as a line of
// ChkReg.log beside itself and answers with the number in ChkReg.result, 1 without one; zorvwmi adds one. Nothing of a
// C++ runtime is in them, which would outlive their unloading.
#include <cstdint>
#include <cstdio>
#include <cstring>

#ifdef _WIN32
#include <windows.h>
#define EXPORTED extern "C" __declspec(dllexport)
#else
#include <dlfcn.h>
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

#ifdef ZORV_CHK_REG
namespace {

std::FILE* open_beside(const char* name, const char* mode) {
    char path[1024] = "";
#ifdef _WIN32
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const char*>(&open_beside), &module);
    GetModuleFileNameA(module, path, MAX_PATH);
#else
    Dl_info info{};
    dladdr(reinterpret_cast<const void*>(&open_beside), &info);
    std::strncpy(path, info.dli_fname, sizeof path - 20);
#endif
    std::size_t end = std::strlen(path);
    while (end > 0 && path[end - 1] != '/' && path[end - 1] != '\\') {
        --end;
    }
    std::strcpy(path + end, name);
    return std::fopen(path, mode);
}

}  // namespace

EXPORTED std::int32_t SetAPInfo(const char* uuid, const wchar_t* account, const char* name, const char* version,
                                std::int32_t agreed, const std::uint16_t* time) {
    if (std::FILE* const log = open_beside("ChkReg.log", "ab")) {
        std::fprintf(log, "%s ", uuid);
        for (; *account != L'\0'; ++account) {
            std::fprintf(log, *account < 0x80 ? "%c" : "<%x>", static_cast<unsigned>(*account));
        }
        std::fprintf(log, " %s %s %d", name, version, static_cast<int>(agreed));
        for (int i = 0; i < 8; ++i) {
            std::fprintf(log, " %u", static_cast<unsigned>(time[i]));
        }
        std::fprintf(log, "\n");
        std::fclose(log);
    }
    int result = 1;
    if (std::FILE* const file = open_beside("ChkReg.result", "r")) {
        result = std::fscanf(file, "%d", &result) == 1 ? result : 1;
        std::fclose(file);
    }
    return result;
}
#else
EXPORTED std::int32_t wmiadd(std::int32_t value) {
    return value + 1;
}
#endif
