#include "xpc/LXPCData.h"

#include <cstring>

void LCopyXPCName(char (&to)[kLXPCNameSize], const char* from) {
    const size_t length = from == nullptr ? 0 : strnlen(from, kLXPCNameSize - 1);
    if (length != 0) std::memmove(to, from, length);
    to[length] = '\0';
}

LXPCDataListable* CreateXPCData(const LXPCDictionaryKeyListable& key, long value, unsigned long size) {
    return new LXPCDataListable(key.name, key.type, value, size);
}
