// floor-pass FILE LIBRARY < STEPS: what pass-bench compares a pass with. It does with SQLite and with the hardware
// library what a pass does, in the cheapest way, and nothing else, so a pass cannot be cheaper. Each line of standard
// input is a step: "load", which loads the library, asks it and frees it, or a statement, for which FILE goes through
// a cycle: transform to a working copy, check, open, run, close, transform back.
#include <dlfcn.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t kKey = 0x5A5A5A5A5A5A5A5A;  // the key byte, eight times
constexpr int kWords = 16;  // at a step: a loop of known length is made of vector instructions, as in a pass

void Check(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        _exit(1);
    }
}

sqlite3_vfs* files = nullptr;  // SQLite's own

// As in a pass: nothing waits for the disk, no file but a journal is looked for, and the path is taken as it is.
int OpenWithoutFlush(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* opened) {
    static sqlite3_io_methods of_database, of_journal;
    const int result = files->xOpen(files, name, file, flags, opened);
    if (file->pMethods != nullptr) {
        sqlite3_io_methods& methods = (flags & SQLITE_OPEN_MAIN_DB) != 0 ? of_database : of_journal;
        methods = *file->pMethods;
        methods.xSync = [](sqlite3_file*, int) { return SQLITE_OK; };
        file->pMethods = &methods;
    }
    return result;
}

int AccessJournal(sqlite3_vfs*, const char* name, int flags, int* result) {
    *result = 0;
    return std::strstr(name, "-journal") != nullptr ? files->xAccess(files, name, flags, result) : SQLITE_OK;
}

int SamePath(sqlite3_vfs*, const char* name, int size, char* path) {
    return std::snprintf(path, size, "%s", name) < size ? SQLITE_OK : SQLITE_CANTOPEN;
}

void Load(const char* library) {
    void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    Check(handle != nullptr, library);
    reinterpret_cast<int (*)()>(dlsym(handle, "InitializeWinIo"))();
    reinterpret_cast<unsigned (*)()>(dlsym(handle, "Battery_Read_CycleCount"))();
    reinterpret_cast<void (*)()>(dlsym(handle, "ShutdownWinIo"))();
    dlclose(handle);
}

void Copy(int from, const std::string& to) {
    static std::uint64_t block[8 * 1024];
    const int target = open(to.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    ssize_t size = 0;
    while ((size = read(from, block, sizeof block)) > 0) {
        for (ssize_t i = 0; i * 8 < size; i += kWords) {
            for (ssize_t word = i; word < i + kWords; ++word) {
                block[word] ^= kKey;
            }
        }
        Check(write(target, block, size) == size, to.c_str());
    }
    Check(size == 0 && target >= 0, to.c_str());
    close(from);
    close(target);
}

void Run(const std::string& file, const std::string& sql) {
    sqlite3* db = nullptr;
    if (sqlite3_open(file.c_str(), &db) != SQLITE_OK ||
        sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        std::fprintf(stderr, "%s\n", sqlite3_errmsg(db));
        _exit(1);
    }
    sqlite3_close(db);
}

void Cycle(const std::string& file, const std::string& sql) {
    const std::string working = file + ".cached";
    const std::string next = working + ".temp";
    const int resting = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    for (const std::string& stale : {working, next, working + "-journal"}) {
        unlink(stale.c_str());
    }
    if (resting >= 0) {
        Copy(resting, working);
        Run(working, "PRAGMA integrity_check");
    }
    Run(working, sql);
    Copy(open(working.c_str(), O_RDONLY | O_CLOEXEC), next);
    unlink(working.c_str());
    unlink(file.c_str());
    Check(rename(next.c_str(), file.c_str()) == 0, file.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: floor-pass FILE LIBRARY < STEPS\n");
        return 2;
    }
    sqlite3_initialize();
    files = sqlite3_vfs_find(nullptr);
    sqlite3_vfs of_pass = *files;
    of_pass.zName = "pass";
    of_pass.xOpen = OpenWithoutFlush;
    of_pass.xAccess = AccessJournal;
    of_pass.xFullPathname = SamePath;
    sqlite3_vfs_register(&of_pass, 1);
    std::vector<char> line(64 * 1024);
    while (std::fgets(line.data(), static_cast<int>(line.size()), stdin) != nullptr) {
        line[std::strcspn(line.data(), "\n")] = '\0';
        if (std::strcmp(line.data(), "load") == 0) {
            Load(argv[2]);
        } else {
            Cycle(argv[1], line.data());
        }
    }
    return 0;
}
