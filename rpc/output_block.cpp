#include "output_block.h"

#include <windows.h>

#include <algorithm>
#include <new>

namespace zorvalis_rpc {
namespace {

constexpr SIZE_T kPage = 0x1000;

// Behind the block, and never given memory. The runtime copies upwards, so that its first step past the block ends it.
constexpr SIZE_T kForbidden = 0x10000;

}  // namespace

void OutputBlock::FreePages::operator()(void* pages) const {
    ::VirtualFree(pages, 0, MEM_RELEASE);
}

OutputBlock::OutputBlock(std::int32_t size) : size_(static_cast<std::size_t>(std::max(size, 1))) {
    const SIZE_T bytes = size_ * sizeof *data_;
    const SIZE_T room = (bytes + kPage - 1) / kPage * kPage;
    pages_.reset(::VirtualAlloc(nullptr, room + kForbidden, MEM_RESERVE, PAGE_NOACCESS));
    if (pages_ == nullptr || ::VirtualAlloc(pages_.get(), room, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
        throw std::bad_alloc();
    }
    data_ = reinterpret_cast<wchar_t*>(static_cast<char*>(pages_.get()) + (room - bytes));
}

std::optional<std::wstring_view> OutputBlock::Text() const {
    const std::wstring_view all(data_, size_);
    const std::size_t end = all.find(L'\0');
    return end == all.npos ? std::nullopt : std::make_optional(all.substr(0, end));
}

}  // namespace zorvalis_rpc
