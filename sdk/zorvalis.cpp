// The C interface: checks what an application hands in, counts the calls of each client, and makes a status and words
// of whatever is thrown. The calls themselves are the session's.
#include "zorvalis.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "session.h"
#include "zorvalis_procedures.h"

using zorvalis_client::Failure;
using zorvalis_client::Session;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kRetry{50};        // between two tries to reach a service that is starting
constexpr milliseconds kCancelAgain{20};  // while a client that is closed has calls

// The functions that use a client now.
struct Users {
    std::mutex mutex;
    std::condition_variable left;
    int count = 0;
    bool closing = false;
};

thread_local char errorText[512];  // Plain bytes: where mingw keeps it, no destructor may run at the thread's end.

std::int32_t Fail(std::int32_t status, const char* what) {
    std::size_t size = std::min(std::strlen(what), sizeof errorText - 1);
    while (what[size] != '\0' && size > 0 && (what[size] & 0xC0) == 0x80) {
        --size;  // not in the middle of a character
    }
    std::memcpy(errorText, what, size);
    errorText[size] = '\0';
    return status;
}

template <class Function>
std::int32_t Caught(Function function) noexcept {
    try {
        function();
        return 0;
    } catch (const Failure& failure) {
        return Fail(failure.status, failure.what());
    } catch (const std::bad_alloc&) {
        return Fail(ZORVALIS_OUT_OF_MEMORY, "there is no memory");
    } catch (const std::exception& error) {
        return Fail(ZORVALIS_LOST, error.what());
    } catch (...) {
        return Fail(ZORVALIS_LOST, "the call failed");
    }
}

void Require(bool condition, const char* what) {
    if (!condition) {
        throw Failure(what, ZORVALIS_BAD_ARGUMENT);
    }
}

// The structure of an older application is shorter, and its missing members are zero here; of a newer one the members
// that this library does not know are left out. `end` is behind the last member of version 1.
template <class Structure>
Structure Taken(const Structure* given, std::size_t end) {
    Structure taken = {};
    if (given != nullptr) {
        Require(given->size >= end, "a structure's size is not set");
        std::memcpy(&taken, given, std::min<std::size_t>(given->size, sizeof taken));
    }
    return taken;
}

std::uint32_t Limit(std::uint32_t limit) {
    return limit == ZORVALIS_NO_LIMIT ? 0 : limit;
}

template <class Value>
Value Input(Value value) {
    return value;
}

std::string Input(const char* text) {
    Require(text != nullptr, "a text is null");
    return text;
}

void Put(std::int32_t* output, bool answer) {
    *output = answer ? 1 : 0;
}

void Put(char** output, const std::string& answer) {
    *output = static_cast<char*>(std::malloc(answer.size() + 1));
    if (*output == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(*output, answer.c_str(), answer.size() + 1);
}

}  // namespace

struct ZorvalisClient {
    ZorvalisClient(const ZorvalisCallbacks& callbacks, const std::string& endpoint, std::uint32_t limit)
        : session(callbacks, endpoint, limit) {
        session.SetLimit(limit);
    }

    // Shared, since a function that has left may still be unlocking the mutex when ZorvalisClose frees the client.
    const std::shared_ptr<Users> users = std::make_shared<Users>();
    Session session;
};

namespace {

// Keeps the client from being freed while a function uses it.
class Use {
public:
    explicit Use(ZorvalisClient* client) {
        Require(client != nullptr, "the client is null");
        if (client->session.IsParents()) {
            throw Failure("the client is the parent process's: a child opens its own", ZORVALIS_LOST);
        }
        const std::lock_guard lock(client->users->mutex);
        if (client->users->closing) {
            throw Failure("the client is being closed", ZORVALIS_CANCELLED);
        }
        users_ = client->users;
        ++users_->count;
    }
    ~Use() {
        const std::lock_guard lock(users_->mutex);
        --users_->count;
        users_->left.notify_all();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

private:
    std::shared_ptr<Users> users_;
};

void RefuseInCallback(const ZorvalisClient& client, const char* name) {
    if (client.session.InCallback()) {
        throw Failure(std::string(name) + " was called from inside a callback of its client, which would wait for ever",
                      ZORVALIS_IN_CALLBACK);
    }
}

template <class Output, class Procedure, class... Values>
std::int32_t Call(ZorvalisClient* client, const char* name, Output output, Procedure procedure, Values... values) {
    constexpr bool kAnswers = !std::is_null_pointer_v<Output>;
    if constexpr (kAnswers) {
        if (output != nullptr) {
            *output = {};
        }
    }
    return Caught([&] {
        const Use use(client);
        RefuseInCallback(*client, name);
        if constexpr (kAnswers) {
            Require(output != nullptr, "there is no place for the answer");
            Put(output, std::invoke(procedure, client->session, Input(values)...));
        } else {
            std::invoke(procedure, client->session, Input(values)...);
        }
    });
}

}  // namespace

std::uint32_t ZorvalisVersion() {
    return ZORVALIS_VERSION;
}

std::int32_t ZorvalisOpen(const ZorvalisOptions* options, const ZorvalisCallbacks* callbacks, ZorvalisClient** client) {
    if (client != nullptr) {
        *client = nullptr;
    }
    return Caught([&] {
        Require(client != nullptr, "there is no place for the client");
        const auto opened = Taken(options, offsetof(ZorvalisOptions, endpoint) + sizeof options->endpoint);
        const auto called = Taken(callbacks, offsetof(ZorvalisCallbacks, integer) + sizeof callbacks->integer);
        const std::string endpoint = opened.endpoint != nullptr ? opened.endpoint : "";
        const milliseconds wait(opened.waitMilliseconds);
        for (const auto start = steady_clock::now(); *client == nullptr;) {
            milliseconds rest = kRetry;
            try {
                *client = new ZorvalisClient(called, endpoint, Limit(opened.limitMilliseconds));
            } catch (const Failure& failure) {
                if (opened.waitMilliseconds != ZORVALIS_NO_LIMIT) {
                    rest = std::chrono::ceil<milliseconds>(start + wait - steady_clock::now());
                }
                if (failure.status != ZORVALIS_NO_SERVICE || rest <= rest.zero()) {
                    throw;
                }
                std::this_thread::sleep_for(std::min(rest, kRetry));
            }
        }
    });
}

std::int32_t ZorvalisClose(ZorvalisClient* client) {
    return Caught([&] {
        if (client == nullptr || client->session.IsParents()) {
            return;
        }
        RefuseInCallback(*client, "ZorvalisClose");
        {
            std::unique_lock lock(client->users->mutex);
            if (std::exchange(client->users->closing, true)) {
                throw Failure("another thread closes the client", ZORVALIS_CANCELLED);
            }
            // More than once, since a call may be counted here and not yet known to the session.
            while (client->users->count != 0) {
                client->session.Cancel();
                client->users->left.wait_for(lock, kCancelAgain);
            }
        }
        delete client;
    });
}

std::int32_t ZorvalisSetLimit(ZorvalisClient* client, std::uint32_t limit) {
    return Caught([&] {
        const Use use(client);
        client->session.SetLimit(Limit(limit));
    });
}

std::int32_t ZorvalisCancel(ZorvalisClient* client) {
    return Caught([&] {
        const Use use(client);
        client->session.Cancel();
    });
}

const char* ZorvalisErrorText() {
    return errorText;
}

void ZorvalisFree(char* text) {
    std::free(text);
}

#define DEFINE(name, parameters, output, ...)                                       \
    std::int32_t Zorvalis##name parameters {                                        \
        return Call(client, "Zorvalis" #name, output, &Session::name, __VA_ARGS__); \
    }
ZORVALIS_FUNCTIONS(DEFINE)
