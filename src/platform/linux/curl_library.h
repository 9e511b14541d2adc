// libcurl, loaded when the first request is made and kept: most passes send nothing.
#pragma once

#include <curl/curl.h>

namespace platform {

struct Curl {
    decltype(::curl_global_init)* global_init;
    decltype(::curl_slist_append)* list_append;
    decltype(::curl_slist_free_all)* list_free;
    CURL* (*easy_init)();
    CURLcode (*easy_setopt)(CURL*, CURLoption, ...);
    void (*easy_cleanup)(CURL*);
    CURLcode (*easy_pause)(CURL*, int);
    CURLM* (*multi_init)();
    CURLMcode (*multi_add)(CURLM*, CURL*);
    CURLMcode (*multi_remove)(CURLM*, CURL*);
    CURLMcode (*multi_perform)(CURLM*, int*);
    CURLMcode (*multi_poll)(CURLM*, curl_waitfd*, unsigned int, int, int*);
    CURLMsg* (*multi_info)(CURLM*, int*);
    CURLMcode (*multi_cleanup)(CURLM*);
    CURLSH* (*share_init)();
    CURLSHcode (*share_setopt)(CURLSH*, CURLSHoption, ...);
    // TLS sessions that later requests resume, as Windows does for all requests of a process. Nothing else is shared: a
    // connection ends with its request, since the product closes its session.
    CURLSH* sessions;
    bool complete;
};

// `complete` is false when libcurl cannot be loaded; the next caller tries again. Any thread.
const Curl& curl();

}  // namespace platform
