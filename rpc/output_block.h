// The room that an answer's text is received into, on Windows. An answer that is longer than what was asked for runs
// into memory that nobody may touch and ends its call with an access violation (rpc/guard.h); what lies behind the
// application's own memory is never reached. Windows' runtime refuses such an answer before it writes anything, by the
// stub's correlation checks; this holds where a runtime makes none.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace zorvalis_rpc {

class OutputBlock {
public:
    // For `size` characters, zeroed; at least for one, since the service itself refuses the other sizes. Throws
    // std::bad_alloc.
    explicit OutputBlock(std::int32_t size);

    // What the stub is given; moving the object leaves it where it is.
    wchar_t* Data() const { return data_; }

    // Up to the terminator, in the block itself; nullopt when the service has sent none.
    std::optional<std::wstring_view> Text() const;

private:
    struct FreePages {
        void operator()(void* pages) const;
    };

    std::size_t size_;
    std::unique_ptr<void, FreePages> pages_;
    wchar_t* data_ = nullptr;
};

}  // namespace zorvalis_rpc
