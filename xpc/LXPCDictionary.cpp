#include "xpc/LXPCDictionary.h"

#include <climits>
#include <cmath>

#include <xpc/xpc.h>

namespace {

/// The address that an item's value holds; null when it was never given one.
template <typename T>
const T* AddressIn(const LXPCData& item) {
    return item.value == -1 ? nullptr : reinterpret_cast<const T*>(item.value);
}

void SetData(xpc_object_t dictionary, const LXPCData& item) {
    const void* const bytes = AddressIn<void>(item);
    if (bytes != nullptr || (item.value == 0 && item.size == 0)) {
        xpc_dictionary_set_data(dictionary, item.name, bytes, item.size);
    }
}

void SetDescriptor(xpc_object_t dictionary, const LXPCData& item) {
    if (item.value >= 0 && item.value <= INT_MAX) {
        xpc_dictionary_set_fd(dictionary, item.name, static_cast<int>(item.value));
    }
}

void SetItem(xpc_object_t dictionary, const LXPCData& item) {
    const int64_t number = item.value;
    switch (item.type) {
        case LXPCDataTypeNone:
            break;
        case LXPCDataTypeBool:
            xpc_dictionary_set_bool(dictionary, item.name, number != 0);
            break;
        case LXPCDataTypeInt64:
            xpc_dictionary_set_int64(dictionary, item.name, number);
            break;
        case LXPCDataTypeUInt64:
            xpc_dictionary_set_uint64(dictionary, item.name, static_cast<uint64_t>(number));
            break;
        case LXPCDataTypeDouble:
            xpc_dictionary_set_double(dictionary, item.name, static_cast<double>(number));
            break;
        case LXPCDataTypeDate:
            xpc_dictionary_set_date(dictionary, item.name, number);
            break;
        case LXPCDataTypeData:
            SetData(dictionary, item);
            break;
        case LXPCDataTypeUUID:
            if (const auto* uuid = AddressIn<unsigned char>(item)) xpc_dictionary_set_uuid(dictionary, item.name, uuid);
            break;
        case LXPCDataTypeString:
            if (const auto* text = AddressIn<char>(item)) xpc_dictionary_set_string(dictionary, item.name, text);
            break;
        case LXPCDataTypeFD:
            SetDescriptor(dictionary, item);
            break;
    }
}

long ToLong(double number) {
    constexpr double kEnd = -static_cast<double>(LONG_MIN);  // the first whole number above LONG_MAX
    if (std::isnan(number)) return 0;
    if (number >= kEnd) return LONG_MAX;
    if (number <= -kEnd) return LONG_MIN;
    return static_cast<long>(number);
}

/// Fills in value and size of an item that already stands in its list: a descriptor has an owner as soon as it exists.
void ReadValue(xpc_object_t dictionary, LXPCData& item) {
    switch (item.type) {
        case LXPCDataTypeNone:
            break;
        case LXPCDataTypeBool:
            item.value = xpc_dictionary_get_bool(dictionary, item.name) ? 1 : 0;
            break;
        case LXPCDataTypeInt64:
            item.value = static_cast<long>(xpc_dictionary_get_int64(dictionary, item.name));
            break;
        case LXPCDataTypeUInt64:
            item.value = static_cast<long>(xpc_dictionary_get_uint64(dictionary, item.name));
            break;
        case LXPCDataTypeDouble:
            item.value = ToLong(xpc_dictionary_get_double(dictionary, item.name));
            break;
        case LXPCDataTypeDate:
            item.value = static_cast<long>(xpc_dictionary_get_date(dictionary, item.name));
            break;
        case LXPCDataTypeData: {
            size_t size = 0;
            item.value = LXPCAddress(xpc_dictionary_get_data(dictionary, item.name, &size));
            item.size = size;
            break;
        }
        case LXPCDataTypeUUID:
            item.value = LXPCAddress(xpc_dictionary_get_uuid(dictionary, item.name));
            break;
        case LXPCDataTypeString:
            item.value = LXPCAddress(xpc_dictionary_get_string(dictionary, item.name));
            break;
        case LXPCDataTypeFD:
            item.value = xpc_dictionary_dup_fd(dictionary, item.name);
            break;
    }
}

}  // namespace

void SetXPCDictionary(void* dictionary, const LList<LXPCDataListable>& items) {
    for (const LXPCDataListable& item : items) SetItem(dictionary, item);
}

void GetXPCDictionary(void* dictionary, LList<LXPCDictionaryKeyListable>& keys, LList<LXPCDataListable>& result) {
    for (const LXPCDictionaryKeyListable& key : keys) {
        if (key.type < LXPCDataTypeBool || key.type > LXPCDataTypeFD) continue;
        if (xpc_dictionary_get_value(dictionary, key.name) == nullptr) continue;
        LXPCDataListable* const item = CreateXPCData(key, -1, 0);
        result.Insert(item);
        ReadValue(dictionary, *item);
    }
}
