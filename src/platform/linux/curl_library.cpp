#include "platform/linux/curl_library.h"

#include <atomic>
#include <csignal>
#include <mutex>

#include "platform/linux/late_library.h"

namespace platform {

namespace {

std::mutex share_locks[CURL_LOCK_DATA_LAST];

void lock_share(CURL*, curl_lock_data data, curl_lock_access, void*) {
    share_locks[data].lock();
}

void unlock_share(CURL*, curl_lock_data data, void*) {
    share_locks[data].unlock();
}

CURLSH* share_sessions(const Curl& library) {
    CURLSH* const share = library.share_init();
    if (share != nullptr) {
        library.share_setopt(share, CURLSHOPT_LOCKFUNC, &lock_share);
        library.share_setopt(share, CURLSHOPT_UNLOCKFUNC, &unlock_share);
        library.share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    return share;
}

Curl load_curl() {
    const LateLibrary library("libcurl.so.4");
    Curl found{};
    found.complete =
        library.find(found.global_init, "curl_global_init") && library.find(found.list_append, "curl_slist_append") &&
        library.find(found.list_free, "curl_slist_free_all") && library.find(found.easy_init, "curl_easy_init") &&
        library.find(found.easy_setopt, "curl_easy_setopt") && library.find(found.easy_cleanup, "curl_easy_cleanup") &&
        library.find(found.easy_pause, "curl_easy_pause") && library.find(found.multi_init, "curl_multi_init") &&
        library.find(found.multi_add, "curl_multi_add_handle") &&
        library.find(found.multi_remove, "curl_multi_remove_handle") &&
        library.find(found.multi_perform, "curl_multi_perform") && library.find(found.multi_poll, "curl_multi_poll") &&
        library.find(found.multi_info, "curl_multi_info_read") &&
        library.find(found.multi_cleanup, "curl_multi_cleanup") && library.find(found.share_init, "curl_share_init") &&
        library.find(found.share_setopt, "curl_share_setopt") && found.global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    found.sessions = found.complete ? share_sessions(found) : nullptr;
    // OpenSSL writes to sockets whose other end may be gone; the signal would end the process.
    std::signal(SIGPIPE, SIG_IGN);
    return found;
}

}  // namespace

const Curl& curl() {
    static std::mutex loading;
    static std::atomic<const Curl*> loaded = nullptr;
    static const Curl kNone{};
    if (const Curl* const library = loaded) {
        return *library;
    }
    const std::lock_guard guard(loading);
    if (loaded == nullptr) {
        const Curl library = load_curl();
        if (!library.complete) {
            return kNone;
        }
        loaded = new Curl(library);  // never freed, nor is the library
    }
    return *loaded;
}

}  // namespace platform
