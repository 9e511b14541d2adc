// Stand-ins for the two closed libraries behind client calls, in one source: ChkReg records each consent as a line of
// ChkReg.log beside itself and answers with the number in ChkReg.result, 1 without one; zorvwmi adds one.
#include <cstdint>
#include <cstdio>
#include <string>

#ifdef _WIN32
#include <windows.h>
#define EXPORTED extern "C" __declspec(dllexport)
#else
#include <dlfcn.h>
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

namespace {

std::string Beside(const char* name) {
#ifdef _WIN32
    HMODULE module = nullptr;
    char path[MAX_PATH] = "";
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const char*>(&Beside), &module);
    GetModuleFileNameA(module, path, MAX_PATH);
    const std::string library = path;
#else
    Dl_info info{};
    dladdr(reinterpret_cast<const void*>(&Beside), &info);
    const std::string library = info.dli_fname;
#endif
    return library.substr(0, library.find_last_of("/\\") + 1) + name;
}

}  // namespace

#ifdef ZORV_CHK_REG
EXPORTED std::int32_t SetAPInfo(const char* uuid, const wchar_t* account, const char* name, const char* version,
                                std::int32_t agreed, const std::uint16_t* time) {
    if (std::FILE* const log = std::fopen(Beside("ChkReg.log").c_str(), "ab")) {
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
    if (std::FILE* const file = std::fopen(Beside("ChkReg.result").c_str(), "r")) {
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
