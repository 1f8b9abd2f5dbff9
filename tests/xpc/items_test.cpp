// Items into dictionaries and back, without a wire in between.
#include <gtest/gtest.h>

#include <unistd.h>

#include <climits>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <xpc/xpc.h>

#include "xpc/LXPCBase.h"
#include "xpc/LXPCDictionary.h"

namespace {

struct Dictionary {
    xpc_object_t object = xpc_dictionary_create(nullptr, nullptr, 0);
    ~Dictionary() { xpc_release(object); }
};

/// A registry filled as an endpoint fills it.
struct Registry : LXPCBase {
    Registry() : LXPCBase(nullptr) {}
};

/// The items as text, "name=value" for each, in the order of the list.
std::string Decoded(xpc_object_t dictionary, Registry& registry) {
    LList<LXPCDataListable> items;
    GetXPCDictionary(dictionary, registry.keys, items);
    std::string text;
    for (const LXPCDataListable& item : items) {
        text += (text.empty() ? "" : " ") + std::string(item.name).substr(0, 8) + "=" + std::to_string(item.value);
    }
    return text;
}

const LXPCDataType kNumbers[] = {LXPCDataTypeBool, LXPCDataTypeInt64, LXPCDataTypeUInt64, LXPCDataTypeDouble,
                                 LXPCDataTypeDate};

TEST(Items, NumbersTravelUnderTheirOwnType) {
    struct Row {
        LXPCDataType type;
        long sent;
        long received;
    };
    const Row rows[] = {
        {LXPCDataTypeBool, 0, 0},
        {LXPCDataTypeBool, -1, 1},
        {LXPCDataTypeBool, 256, 1},
        {LXPCDataTypeInt64, LONG_MIN, LONG_MIN},
        {LXPCDataTypeUInt64, -1, -1},
        {LXPCDataTypeDouble, -12345, -12345},
        {LXPCDataTypeDouble, LONG_MAX, LONG_MAX},  // rounds up to 2^63 on the way, and is cut back
        {LXPCDataTypeDouble, LONG_MIN, LONG_MIN},
        {LXPCDataTypeDate, LONG_MAX, LONG_MAX},
    };
    for (const Row& row : rows) {
        Dictionary dictionary;
        LList<LXPCDataListable> items;
        items.Insert(new LXPCDataListable("key", row.type, row.sent));
        SetXPCDictionary(dictionary.object, items);
        for (const LXPCDataType readAs : kNumbers) {
            Registry registry;
            registry.AddKey("key", readAs);
            const long expected = readAs == row.type ? row.received : 0;
            EXPECT_EQ(Decoded(dictionary.object, registry), "key=" + std::to_string(expected))
                << "sent " << row.sent << " as " << row.type << ", read as " << readAs;
        }
    }
}

TEST(Items, DoublesWithoutAWholeNumberAreCutToTheNearest) {
    const std::pair<double, long> rows[] = {{NAN, 0}, {INFINITY, LONG_MAX}, {-INFINITY, LONG_MIN}, {1e30, LONG_MAX},
                                            {2.9, 2}, {-2.9, -2},           {-1e30, LONG_MIN},     {-0.0, 0}};
    for (const auto& [sent, received] : rows) {
        Dictionary dictionary;
        xpc_dictionary_set_double(dictionary.object, "key", sent);
        Registry registry;
        registry.AddKey("key", LXPCDataTypeDouble);
        EXPECT_EQ(Decoded(dictionary.object, registry), "key=" + std::to_string(received)) << sent;
    }
}

TEST(Items, TextsBlocksAndDescriptorsAreCopiedIntoTheMessage) {
    Dictionary dictionary;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    {
        std::string text = "f\xc3\xbcr";
        unsigned char uuid[16] = {1, 2, 3};
        LList<LXPCDataListable> items;
        items.Insert(new LXPCDataListable("text", LXPCDataTypeString, LXPCAddress(text.c_str())));
        items.Insert(new LXPCDataListable("block", LXPCDataTypeData, LXPCAddress("a\0b"), 3));
        items.Insert(new LXPCDataListable("empty", LXPCDataTypeData, 0, 0));
        items.Insert(new LXPCDataListable("uuid", LXPCDataTypeUUID, LXPCAddress(uuid)));
        items.Insert(new LXPCDataListable("fd", LXPCDataTypeFD, ends[1]));
        SetXPCDictionary(dictionary.object, items);
        text = "overwritten";
        uuid[0] = 9;
        close(ends[1]);
    }
    Registry registry;
    for (const auto& [name, type] :
         {std::pair{"text", LXPCDataTypeString}, std::pair{"block", LXPCDataTypeData},
          std::pair{"empty", LXPCDataTypeData}, std::pair{"uuid", LXPCDataTypeUUID}, std::pair{"fd", LXPCDataTypeFD}}) {
        registry.AddKey(name, type);
    }
    LList<LXPCDataListable> items;
    GetXPCDictionary(dictionary.object, registry.keys, items);
    std::vector<const LXPCDataListable*> in;
    for (const LXPCDataListable& item : items) in.push_back(&item);
    ASSERT_EQ(in.size(), 5U);
    EXPECT_STREQ(reinterpret_cast<const char*>(in[0]->value), "f\xc3\xbcr");
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(in[1]->value), in[1]->size), std::string("a\0b", 3));
    EXPECT_EQ(in[2]->size, 0U);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(in[3]->value)[0], 1);
    const int received = static_cast<int>(in[4]->value);
    ASSERT_EQ(write(received, "x", 1), 1);  // the receiver's own end of the pipe
    close(received);
    close(ends[0]);
}

TEST(Items, WhatHoldsNothingIsLeftOut) {
    Dictionary dictionary;
    LList<LXPCDataListable> items;
    for (const LXPCDataType type : {LXPCDataTypeString, LXPCDataTypeUUID, LXPCDataTypeData}) {
        for (const long address : {0L, -1L}) items.Insert(new LXPCDataListable("key", type, address, 4));
    }
    items.Insert(new LXPCDataListable("key", LXPCDataTypeFD, -1));
    items.Insert(new LXPCDataListable("key", LXPCDataTypeFD, LONG_MAX));
    for (const int type : {0, 10, -1, INT_MAX}) {
        items.Insert(new LXPCDataListable("key", static_cast<LXPCDataType>(type), 1));
    }
    SetXPCDictionary(dictionary.object, items);
    EXPECT_EQ(xpc_dictionary_get_count(dictionary.object), 0U);
}

TEST(Items, OrderIsThatOfRegistrationAndTheTailWins) {
    Dictionary dictionary;
    LList<LXPCDataListable> items;
    items.Insert(new LXPCDataListable("C", LXPCDataTypeInt64, 1));  // nearest the tail
    items.Insert(new LXPCDataListable("A", LXPCDataTypeInt64, 2));
    items.Insert(new LXPCDataListable("C", LXPCDataTypeInt64, 3));
    SetXPCDictionary(dictionary.object, items);
    Registry registry;
    registry.AddKey("A", LXPCDataTypeInt64);
    registry.AddKey(LXPCDictionaryKeyListable("B", LXPCDataTypeInt64));
    registry.AddKey("C", LXPCDataTypeInt64);
    registry.AddKey("A", LXPCDataTypeBool);               // a second registration: a second item
    registry.AddKey("C", static_cast<LXPCDataType>(10));  // and one that reads nothing
    EXPECT_EQ(Decoded(dictionary.object, registry), "A=2 C=1 A=0");
}

TEST(Items, NamesAreCutTo259BytesAlikeInKeysAndItems) {
    const std::string common(259, 'n');
    Dictionary dictionary;
    LList<LXPCDataListable> items;
    items.Insert(new LXPCDataListable((common + "item").c_str(), LXPCDataTypeInt64, 5));
    SetXPCDictionary(dictionary.object, items);
    EXPECT_EQ(xpc_dictionary_get_int64(dictionary.object, common.c_str()), 5);
    Registry registry;
    registry.AddKey((common + "key").c_str(), LXPCDataTypeInt64);
    registry.AddKey(std::string(258, 'n').c_str(), LXPCDataTypeInt64);
    EXPECT_EQ(Decoded(dictionary.object, registry), "nnnnnnnn=5");
}

}  // namespace
