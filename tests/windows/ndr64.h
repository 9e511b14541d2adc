// Stands in for the NDR64 of Windows' RPC runtime, which Wine lacks: reads the compiled tables, by the numbers that
// they have in the stubs of Windows' own compiler, and does with a call what they say. A table of another form, or one
// that asks for more than it has room for, fails the test. One thread at a time.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>
#include <ndr64types.h>
#include <rpc.h>
#include <rpcndr.h>

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <deque>
#include <map>
#include <set>
#include <span>

namespace ndr64 {

// A buffer of a call, in which a value lies at a multiple of its alignment.
struct Wire {
    std::string bytes;

    void align(std::size_t size) { bytes.resize((bytes.size() + size - 1) / size * size); }
    void put(const void* data, std::size_t size, std::size_t alignment) {
        align(alignment);
        bytes.append(static_cast<const char*>(data), size);
    }
    template <class Value>
    void put(Value value) {
        put(&value, sizeof value, sizeof value);
    }
};

using Callbacks = std::vector<std::pair<unsigned long, std::string>>;

// What has gone through it, one thread at a time.
inline Callbacks sent;
inline const MIDL_STUBLESS_PROXY_INFO* sent_by;
inline int served;                 // calls that got as far as the service's routine
inline void (*during_callback)();  // what the client does before it returns from one, or null

using Byte = std::uint8_t;
using Number = std::uint64_t;

struct Count {
    std::uint32_t is_known;
    NDR64_EXPR_VAR variable;
};
struct Parameter : NDR64_PARAM_FORMAT {
    template <class Kind>
    const Kind& type() const {
        return *static_cast<const Kind*>(NDR64_PARAM_FORMAT::Type);
    }
    Byte code() const { return type<Byte>(); }
    int attributes() const { return std::bit_cast<std::uint16_t>(Attributes); }
    bool has(int attribute) const { return (attributes() & attribute) != 0; }
};

constexpr Byte kLong = 0x05, kHyper = 0x07, kChar = 0x10, kWide = 0x11, kArray = 0x41, kText = 0x63, kWideText = 0x64,
               kContext = 0x70, kPrimitive = 0x72, kVariable = 3, kNotNull = 1;
constexpr int kIn = 0x08, kOut = 0x10, kReference = 0x100;
constexpr std::size_t kContextSize = 20, kSlots = 8;
inline const std::map<Byte, std::size_t> kSizes{{kLong, 4}, {kHyper, 8}, {kChar, 1}, {kWide, 2}};

// What a parameter can be: its attributes, its type's code, and a context's flags, a text's unit, an array's alignment.
inline const std::set<std::tuple<int, Byte, Byte>> kShapes{
    {0x08, kContext, 0x45}, {0x110, kContext, 0xa4}, {0x118, kContext, 0xe5}, {0x10b, kText, 1}, {0x10b, kWideText, 2},
    {0x113, kArray, 1},     {0xc8, kLong, 0},        {0xc8, kHyper, 0},       {0xc8, kChar, 0},  {0x8150, kLong, 0}};

inline std::map<std::string, void*> contexts;

class Call {
public:
    Call(const void* format, bool is_callback)
        : procedure_(*static_cast<const NDR64_PROC_FORMAT*>(format)),
          binding_(*reinterpret_cast<const NDR64_BIND_AND_NOTIFY_EXTENSION*>(&procedure_ + 1)) {
        const auto* const next = reinterpret_cast<const Byte*>(&binding_) + procedure_.ExtensionSize;
        parameters_ = {reinterpret_cast<const Parameter*>(next), procedure_.NumberOfParams};
        has_handle_ = !is_callback && binding_.Binding.HandleType == kPrimitive;
        std::uint32_t flags = is_callback ? 0x44 : 0x1000040;
        for (const Parameter& parameter : parameters_) {
            const Byte code = parameter.code();
            const bool is_text = code == kText || code == kWideText;
            const Byte second = kSizes.contains(code) ? 0 : (&parameter.type<Byte>())[is_text ? 2 : 1];
            EXPECT_TRUE(kShapes.contains({parameter.attributes(), code, second}));
            EXPECT_TRUE(code != kContext || has_handle_ ||
                        (binding_.Binding.HandleType == kContext && binding_.Binding.Flags == (second & ~kNotNull) &&
                         binding_.Binding.StackOffset == parameter.StackOffset));
            flags |= code == kArray ? 0x420000 : is_text ? 0x40000 : 0;
        }
        EXPECT_EQ(procedure_.Flags, flags);
        EXPECT_EQ(procedure_.StackSize, 8U * (procedure_.NumberOfParams + has_handle_));
        EXPECT_EQ(procedure_.ExtensionSize, is_callback ? 0 : sizeof binding_);
    }

    // The service's side of a call.
    std::string serve(const RPC_MESSAGE& message, SERVER_ROUTINE routine) {
        bytes_ = {static_cast<const char*>(message.Buffer), message.BufferLength};
        each(kIn, [this](const Parameter& parameter) { slot(parameter.StackOffset) = unmarshal(parameter); });
        EXPECT_EQ(at_, message.BufferLength);
        EXPECT_LE(at_, procedure_.ConstantClientBufferSize + variable_);
        each(kOut, [this](const Parameter& parameter) {
            const std::size_t size = parameter.code() == kArray ? 2 * count_of(parameter) : sizeof(Number);
            if (!parameter.has(kIn)) {
                slot(parameter.StackOffset) = keep(std::string(size, '\x55'));
            }
        });
        ++served;
        using Routine = void(Number, Number, Number, Number, Number, Number, Number, Number);
        const auto& s = slots;
        reinterpret_cast<Routine*>(reinterpret_cast<void*>(routine))(s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7]);
        return marshal(kOut, procedure_.ConstantServerBufferSize);
    }

    // The caller's side of a callback.
    std::string request() { return marshal(kIn, procedure_.ConstantClientBufferSize); }
    Number slots[kSlots] = {};

private:
    template <class Action>
    void each(int attribute, Action action) {
        for (const Parameter& parameter : parameters_) {
            if (parameter.has(attribute)) {
                action(parameter);
            }
        }
    }

    Number& slot(std::size_t offset) { return slots[offset / 8 % kSlots]; }

    Number keep(std::string bytes) { return reinterpret_cast<Number>(kept_.emplace_back(std::move(bytes)).data()); }

    std::string take(std::size_t size, std::size_t alignment) {
        at_ = (at_ + alignment - 1) / alignment * alignment + size;
        return bytes_.substr(at_ - size, size);
    }
    Number take_number(std::size_t size) {
        return *reinterpret_cast<const Number*>((take(size, size) + std::string(sizeof(Number), 0)).data());
    }

    Number unmarshal(const Parameter& parameter) {
        if (const auto base = kSizes.find(parameter.code()); base != kSizes.end()) {
            return take_number(base->second);
        }
        if (parameter.code() == kContext) {
            void*& context = contexts[take(kContextSize, 4)];
            if (context == nullptr && (parameter.type<NDR64_CONTEXT_HANDLE_FORMAT>().ContextFlags & kNotNull) != 0) {
                ::RpcRaiseException(RPC_X_SS_IN_NULL_CONTEXT);
            }
            return parameter.has(kReference) ? keep({reinterpret_cast<const char*>(&context), sizeof context})
                                             : reinterpret_cast<Number>(context);
        }
        const std::size_t size = parameter.type<NDR64_STRING_HEADER_FORMAT>().ElementSize;
        const Number most = take_number(8), first = take_number(8), count = take_number(8);
        EXPECT_TRUE(most == count && first == 0);
        variable_ += 7 + 3 * 8 + count * size;
        return keep(take(count * size, size));
    }

    // Of an array of wide characters.
    Number count_of(const Parameter& parameter) {
        const auto& array = parameter.type<NDR64_CONF_ARRAY_HEADER_FORMAT>();
        const auto& element = reinterpret_cast<const NDR64_ARRAY_ELEMENT_INFO&>(*(&array + 1));
        const auto& [is_known, variable] = *static_cast<const Count*>(array.ConfDescriptor);
        EXPECT_TRUE(array.ElementSize == 2 && element.ElementMemSize == 2 &&
                    *static_cast<const Byte*>(element.Element) == kWide);
        EXPECT_TRUE(variable.ExprType == kVariable && variable.VarType == kLong &&
                    is_known == (variable.Offset < parameter.StackOffset));
        return static_cast<std::uint32_t>(slot(variable.Offset));
    }

    std::string marshal(int way, std::size_t room) {
        Wire answer;
        each(way, [&](const Parameter& parameter) {
            Number& value = slot(parameter.StackOffset);
            const void* const memory = parameter.has(kReference) ? reinterpret_cast<const void*>(value) : &value;
            if (const auto base = kSizes.find(parameter.code()); base != kSizes.end()) {
                answer.put(memory, base->second, base->second);
            } else if (parameter.code() == kContext) {
                std::string known(kContextSize, '\0');
                if (void* const context = *static_cast<void* const*>(memory); context != nullptr) {
                    known.back() = static_cast<char>(contexts.size() + 1);
                    contexts[known] = context;
                }
                answer.put(known.data(), known.size(), 4);
            } else {
                const bool is_array = parameter.code() == kArray;  // or the narrow text of a callback
                const std::size_t size = is_array ? 2 : 1;
                const Number count = is_array ? count_of(parameter) : std::strlen(static_cast<const char*>(memory)) + 1;
                answer.put(count);
                if (!is_array) {
                    answer.put(Number{0});
                    answer.put(count);
                }
                answer.put(memory, count * size, size);
                room += 7 + 3 * 8 + count * size;
            }
        });
        EXPECT_LE(answer.bytes.size(), room);
        return answer.bytes;
    }

    const NDR64_PROC_FORMAT& procedure_;
    const NDR64_BIND_AND_NOTIFY_EXTENSION& binding_;
    std::span<const Parameter> parameters_;
    bool has_handle_;
    std::string bytes_;
    std::size_t at_ = 0;
    std::size_t variable_ = 0;  // what the texts take of the request at most
    std::deque<std::string> kept_;
};

// The procedures of NDR64 stand where those of NDR 2.0 have the places of their format strings.
inline const void* format_of(const MIDL_SYNTAX_INFO* syntaxes, unsigned long number) {
    return reinterpret_cast<const void* const*>(syntaxes[1].FmtStringOffset)[number];
}

// In the place of NdrServerCallAll. The answer is in the message until the next call.
inline void serve(RPC_MESSAGE* message) {
    static std::string answer;
    const auto* const called = static_cast<const RPC_SERVER_INTERFACE*>(message->RpcInterfaceInformation);
    const auto& info = *static_cast<const MIDL_SERVER_INFO*>(called->InterpreterInfo);
    answer = Call(format_of(info.pSyntaxInfo, message->ProcNum), false)
                 .serve(*message, info.DispatchTable[message->ProcNum]);
    message->Buffer = answer.data();
    message->BufferLength = static_cast<unsigned>(answer.size());
}

// In the place of NdrClientCall3.
inline CLIENT_CALL_RETURN call(MIDL_STUBLESS_PROXY_INFO* info, unsigned long number, void* result, ...) {
    Call one(format_of(info->pSyntaxInfo, number), true);
    va_list arguments;
    va_start(arguments, result);
    std::generate_n(one.slots, 3, [&arguments] { return va_arg(arguments, Number); });
    va_end(arguments);
    sent.emplace_back(number, one.request());
    sent_by = info;
    if (during_callback != nullptr) {
        during_callback();
    }
    return {};
}

}  // namespace ndr64
