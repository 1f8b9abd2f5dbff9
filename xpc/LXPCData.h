// What a message is made of: typed items, and the keys under which an endpoint is willing to read them.
//
// A message is an `LList<LXPCDataListable>`; an endpoint's registry is an `LList<LXPCDictionaryKeyListable>`. Both
// kinds of list own their elements and nothing that an element's `value` points to:
//   - when sending, texts, byte blocks and UUIDs belong to the caller and must stay valid until the send returns;
//   - when receiving, they lie inside the received message and are valid during the event call that delivers the list;
//   - a received file descriptor is a duplicate of its own and belongs to whoever receives the list, who closes it.
//
// `value` is as wide as a pointer: on a 32-bit build, 64-bit numbers and dates keep their low-order bits when received.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/LList.h"

/// How an item's value is to be understood. Any other number means the same as None.
enum LXPCDataType : int32_t {
    LXPCDataTypeNone = 0,    // not sent, not read
    LXPCDataTypeBool = 1,    // value: 0 is false, anything else true; received as 0 or 1
    LXPCDataTypeInt64 = 2,   // value: the number
    LXPCDataTypeUInt64 = 3,  // value: the number
    LXPCDataTypeDouble = 4,  // value: the number as a whole number
    LXPCDataTypeDate = 5,    // value: an integer passed through untouched; the vocabulary says its unit
    LXPCDataTypeData = 6,    // value: address of the first byte; size: number of bytes
    LXPCDataTypeUUID = 7,    // value: address of 16 bytes
    LXPCDataTypeString = 8,  // value: address of NUL-terminated UTF-8
    LXPCDataTypeFD = 9       // value: the descriptor
};

/// What an error event on a connection means.
enum LXPCErrorType : int32_t {
    LXPCErrorOther = 0,
    LXPCErrorConnectionInvalid = 1,      // unusable for good: cancelled, or the other side is gone
    LXPCErrorConnectionInterrupted = 2,  // the other side went away and may come back
    LXPCErrorTerminationImminent = 3
};

/// Bytes of a name field, the terminator included. Longer names are cut to their first 259 bytes, in keys and in items
/// alike, so that two names that agree in those bytes are one key.
constexpr size_t kLXPCNameSize = 260;

/// Copies `from` (null counts as empty) into `to`, cut to 259 bytes, always terminated.
void LCopyXPCName(char (&to)[kLXPCNameSize], const char* from);

/// An address as an item's value.
inline long LXPCAddress(const void* address) {
    static_assert(sizeof(long) == sizeof(void*), "an item's value carries addresses");
    return reinterpret_cast<long>(address);
}

/// One typed value under a name.
struct LXPCData {
    char name[kLXPCNameSize];
    LXPCDataType type = LXPCDataTypeNone;
    long value = -1;         // a number, a boolean or an address, by `type`
    unsigned long size = 0;  // bytes of a LXPCDataTypeData value, otherwise 0

    LXPCData() { name[0] = '\0'; }
    LXPCData(const char* itemName, LXPCDataType itemType, long itemValue, unsigned long itemSize = 0)
        : type(itemType), value(itemValue), size(itemSize) {
        LCopyXPCName(name, itemName);
    }
};

/// An item of a message.
struct LXPCDataListable : LXPCData {
    LXPCDataListable* next = nullptr;
    using LXPCData::LXPCData;
};

/// A registered key: the name, and the type under which it is read.
struct LXPCDictionaryKeyListable {
    char name[kLXPCNameSize];
    LXPCDataType type = LXPCDataTypeNone;
    LXPCDictionaryKeyListable* next = nullptr;

    LXPCDictionaryKeyListable() { name[0] = '\0'; }
    LXPCDictionaryKeyListable(const char* keyName, LXPCDataType keyType) : type(keyType) {
        LCopyXPCName(name, keyName);
    }
};

/// A new item with the key's name and type. The caller owns it and links it.
LXPCDataListable* CreateXPCData(const LXPCDictionaryKeyListable& key, long value, unsigned long size);
