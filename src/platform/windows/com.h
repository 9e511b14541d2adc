// RAII for COM: a thread's stay in the multithreaded apartment, pointers, texts and values. A text that cannot be
// allocated raises std::bad_alloc.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <new>
#include <utility>

#include "platform/windows/handles.h"

namespace platform {

// Make it the first member of an object that holds pointers: COM must be left only after they are released.
class Apartment {
public:
    Apartment() = default;
    ~Apartment() {
        for (; entered_ > 0; --entered_) {
            ::CoUninitialize();
        }
    }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    HRESULT enter() {
        const HRESULT status = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        entered_ += SUCCEEDED(status) ? 1 : 0;
        return status;
    }

private:
    int entered_ = 0;
};

template <class Interface>
class ComPointer {
public:
    ComPointer() = default;
    ~ComPointer() { release(); }
    ComPointer(const ComPointer&) = delete;
    ComPointer& operator=(const ComPointer&) = delete;

    Interface* get() const { return object_; }
    Interface* operator->() const { return object_; }

    // For a call that hands out an object: releases the present one and gives the place for the new one.
    Interface** put() {
        release();
        return &object_;
    }

private:
    void release() {
        if (object_ != nullptr) {
            std::exchange(object_, nullptr)->Release();
        }
    }

    Interface* object_ = nullptr;
};

using OwnedText = Owned<::SysFreeString, BSTR>;

inline OwnedText make_text(const wchar_t* text) {
    OwnedText result(::SysAllocString(text));
    return result != nullptr ? std::move(result) : throw std::bad_alloc();
}

struct OwnedVariant : VARIANT {
    OwnedVariant() { ::VariantInit(this); }
    explicit OwnedVariant(const wchar_t* text) : OwnedVariant() {
        bstrVal = make_text(text).release();
        vt = VT_BSTR;
    }
    ~OwnedVariant() { ::VariantClear(this); }
    OwnedVariant(const OwnedVariant&) = delete;
    OwnedVariant& operator=(const OwnedVariant&) = delete;
};

}  // namespace platform
