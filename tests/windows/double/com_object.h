// COM objects made of tables of functions: a double fills in the entries that it answers, and a call of any other is
// written down as unexpected. The interfaces are the system's own in their C form, which names the entries.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <tuple>
#include <type_traits>

#include "com.h"
#include "journal.h"

#ifndef CINTERFACE
#error "a source that includes this defines CINTERFACE before any header"
#endif

namespace doubles {

// `name` comes before each of its steps. The further interface is given out only by a step of its own, QueryInterface,
// and by another object when there is a `further_maker`.
template <class Interface>
struct Object : Interface {
    const char* name = nullptr;
    const IID* own = nullptr;
    const IID* further = nullptr;
    IUnknown* (*further_maker)() = nullptr;
    std::atomic<ULONG> references{1};
    void (*end)(Object*) = nullptr;
};

using AnyObject = Object<IUnknown>;  // all have this layout

inline ULONG add_reference(AnyObject* self) {
    ++heldObjects;
    return ++self->references;
}

inline ULONG release(AnyObject* self) {
    --heldObjects;
    const ULONG left = --self->references;
    if (left == 0) {
        self->end(self);
    }
    return left;
}

inline HRESULT query_interface(AnyObject* self, const IID& wanted, void** object) {
    *object = nullptr;
    if (self->further != nullptr && wanted == *self->further) {
        const HRESULT status = step(std::string(self->name) + ".QueryInterface");
        if (status != S_OK) {
            return status;
        }
        if (self->further_maker != nullptr) {
            *object = self->further_maker();
            return S_OK;
        }
    } else if (wanted != IID_IUnknown && wanted != *self->own) {
        return E_NOINTERFACE;
    }
    add_reference(self);
    *object = self;
    return S_OK;
}

inline HRESULT unexpected(AnyObject* self) {
    write(std::string(self->name) + " unexpected call");
    return E_NOTIMPL;
}

// Makes an object of type `Double`, an `Object` of some interface, with one reference. `fill` is a function without
// captures that puts the answered entries into the table.
template <class Double, class Fill>
Double* make(const char* name, const IID& own, Fill fill, const IID* further = nullptr) {
    using Table = std::remove_const_t<std::remove_pointer_t<decltype(Double::lpVtbl)>>;
    static const Table table = [fill] {
        Table entries;
        void** const slots = reinterpret_cast<void**>(&entries);
        for (std::size_t i = 0; i < sizeof entries / sizeof *slots; ++i) {
            slots[i] = reinterpret_cast<void*>(&unexpected);
        }
        slots[0] = reinterpret_cast<void*>(&query_interface);
        slots[1] = reinterpret_cast<void*>(&add_reference);
        slots[2] = reinterpret_cast<void*>(&release);
        fill(entries);
        return entries;
    }();
    auto* const object = new Double;
    object->lpVtbl = const_cast<Table*>(&table);
    object->name = name;
    object->own = &own;
    object->further = further;
    object->end = [](auto* self) { delete static_cast<Double*>(self); };
    ++heldObjects;
    return object;
}

// A step that gives an object out.
template <class Interface, class Maker>
HRESULT give(Interface** object, Maker maker, const std::string& name, const std::string& arguments) {
    const HRESULT status = step(name, arguments);
    *object = status == S_OK ? reinterpret_cast<Interface*>(maker()) : nullptr;
    return status;
}

template <std::size_t size>
struct Text {
    char text[size];
    constexpr Text(const char (&literal)[size]) { std::copy_n(literal, size, text); }
};

// Makes an entry of a table a step with all its arguments. With a maker it gives out, by its last argument, an object.
template <Text method, auto maker = nullptr, class Interface, class... Arguments>
void record(HRESULT (*&entry)(Interface*, Arguments...)) {
    entry = [](Interface* self, Arguments... arguments) -> HRESULT {
        const std::string name = std::string(static_cast<Object<Interface>*>(self)->name) + "." + method.text;
        const std::string all = (shown(arguments) + ...);
        if constexpr (maker != nullptr) {
            return give(std::get<sizeof...(Arguments) - 1>(std::tuple(arguments...)), maker, name, all);
        }
        return step(name, all);
    };
}
#define RECORD(method, ...) record<#method __VA_OPT__(, ) __VA_ARGS__>(table.method)

}  // namespace doubles
