// Where a client takes the callbacks that Wine refuses to make: an endpoint and an event of one name, by its process.
#pragma once

namespace doubles {

constexpr wchar_t kCallbackEndpoint[] = L"ZorvTestCallback%lu";

}  // namespace doubles
