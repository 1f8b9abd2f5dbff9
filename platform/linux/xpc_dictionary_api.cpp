// The dictionary functions of <xpc/xpc.h>.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "platform/linux/xpc_dictionary.h"

using transport::Dictionary;
using wire::Type;

namespace {

/// Null for anything that is no dictionary, so that asking an error object for a value has the neutral result.
Dictionary* dictionaryOf(xpc_object_t object) {
    const auto* typed = static_cast<transport::Object*>(object);
    return typed != nullptr && typed->objectType == XPC_TYPE_DICTIONARY ? static_cast<Dictionary*>(object) : nullptr;
}

void setBytes(xpc_object_t object, const char* key, Type type, const void* value, size_t bytes) {
    Dictionary* dictionary = dictionaryOf(object);
    if (dictionary != nullptr && key != nullptr) dictionary->set(key, type, value, bytes);
}

template <typename Value>
void setValue(xpc_object_t object, const char* key, Type type, const Value& value) {
    setBytes(object, key, type, &value, sizeof value);
}

const unsigned char* find(xpc_object_t object, const char* key, Type type, size_t* bytes = nullptr) {
    const Dictionary* dictionary = dictionaryOf(object);
    return dictionary == nullptr ? nullptr : dictionary->find(key, type, bytes);
}

template <typename Value>
Value getValue(xpc_object_t object, const char* key, Type type, Value neutral) {
    const unsigned char* value = find(object, key, type);
    return value == nullptr ? neutral : wire::load<Value>(value);
}

}  // namespace

xpc_object_t xpc_dictionary_create(const char* const* /*keys*/, const xpc_object_t* /*values*/, size_t /*count*/) {
    return Dictionary::create();
}

xpc_object_t xpc_dictionary_create_reply(xpc_object_t message) {
    Dictionary* dictionary = dictionaryOf(message);
    return dictionary == nullptr ? nullptr : dictionary->createReply();
}

void xpc_dictionary_set_bool(xpc_object_t dictionary, const char* key, bool value) {
    setValue(dictionary, key, Type::Bool, static_cast<uint8_t>(value ? 1 : 0));
}

void xpc_dictionary_set_int64(xpc_object_t dictionary, const char* key, int64_t value) {
    setValue(dictionary, key, Type::Int64, value);
}

void xpc_dictionary_set_uint64(xpc_object_t dictionary, const char* key, uint64_t value) {
    setValue(dictionary, key, Type::UInt64, value);
}

void xpc_dictionary_set_double(xpc_object_t dictionary, const char* key, double value) {
    setValue(dictionary, key, Type::Double, value);
}

void xpc_dictionary_set_date(xpc_object_t dictionary, const char* key, int64_t value) {
    setValue(dictionary, key, Type::Date, value);
}

void xpc_dictionary_set_data(xpc_object_t dictionary, const char* key, const void* bytes, size_t length) {
    if (bytes != nullptr || length == 0) setBytes(dictionary, key, Type::Data, bytes, length);
}

void xpc_dictionary_set_uuid(xpc_object_t dictionary, const char* key, const unsigned char* uuid) {
    if (uuid != nullptr) setBytes(dictionary, key, Type::Uuid, uuid, 16);
}

void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* text) {
    if (text != nullptr) setBytes(dictionary, key, Type::String, text, std::strlen(text) + 1);
}

void xpc_dictionary_set_fd(xpc_object_t dictionary, const char* key, int fd) {
    if (dictionaryOf(dictionary) == nullptr || key == nullptr) return;
    const int32_t copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return;
    const auto stored = [&] {
        setValue(dictionary, key, Type::Descriptor, copy);
        return dictionaryOf(dictionary)->find(key, Type::Descriptor, nullptr);
    };
    try {
        const unsigned char* value = stored();
        if (value == nullptr || wire::load<int32_t>(value) != copy) ::close(copy);  // the key is too long to be stored
    } catch (...) {
        ::close(copy);
        throw;
    }
}

xpc_object_t xpc_dictionary_get_value(xpc_object_t dictionary, const char* key) {
    const Dictionary* found = dictionaryOf(dictionary);
    return found == nullptr ? nullptr : found->find(key);
}

size_t xpc_dictionary_get_count(xpc_object_t dictionary) {
    const Dictionary* found = dictionaryOf(dictionary);
    return found == nullptr ? 0 : found->count();
}

bool xpc_dictionary_get_bool(xpc_object_t dictionary, const char* key) {
    return getValue<uint8_t>(dictionary, key, Type::Bool, 0) != 0;
}

int64_t xpc_dictionary_get_int64(xpc_object_t dictionary, const char* key) {
    return getValue<int64_t>(dictionary, key, Type::Int64, 0);
}

uint64_t xpc_dictionary_get_uint64(xpc_object_t dictionary, const char* key) {
    return getValue<uint64_t>(dictionary, key, Type::UInt64, 0);
}

double xpc_dictionary_get_double(xpc_object_t dictionary, const char* key) {
    return getValue<double>(dictionary, key, Type::Double, 0.0);
}

int64_t xpc_dictionary_get_date(xpc_object_t dictionary, const char* key) {
    return getValue<int64_t>(dictionary, key, Type::Date, 0);
}

const void* xpc_dictionary_get_data(xpc_object_t dictionary, const char* key, size_t* length) {
    size_t bytes = 0;
    const void* value = find(dictionary, key, Type::Data, &bytes);
    if (length != nullptr) *length = bytes;
    return value;
}

const unsigned char* xpc_dictionary_get_uuid(xpc_object_t dictionary, const char* key) {
    return find(dictionary, key, Type::Uuid);
}

const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key) {
    return reinterpret_cast<const char*>(find(dictionary, key, Type::String));
}

int xpc_dictionary_dup_fd(xpc_object_t dictionary, const char* key) {
    const int own = getValue<int32_t>(dictionary, key, Type::Descriptor, -1);
    return own < 0 ? -1 : ::fcntl(own, F_DUPFD_CLOEXEC, 0);
}
