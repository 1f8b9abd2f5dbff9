#include "platform/linux/xpc_object.h"

#include "platform/linux/xpc_dictionary.h"

constinit const _xpc_type_s _xpc_type_connection(nullptr);
constinit const _xpc_type_s _xpc_type_dictionary(nullptr);
constinit const _xpc_type_s _xpc_type_error(nullptr);

namespace {

constinit _xpc_type_s connectionInvalid(XPC_TYPE_ERROR);
constinit _xpc_type_s connectionInterrupted(XPC_TYPE_ERROR);
constinit _xpc_type_s terminationImminent(XPC_TYPE_ERROR);

thread_local xpc_connection_t currentConnection = nullptr;

bool isCounted(const transport::Object* object) {
    return object->objectType == XPC_TYPE_CONNECTION || object->objectType == XPC_TYPE_DICTIONARY;
}

}  // namespace

constinit _xpc_type_s* const _xpc_error_connection_invalid = &connectionInvalid;
constinit _xpc_type_s* const _xpc_error_connection_interrupted = &connectionInterrupted;
constinit _xpc_type_s* const _xpc_error_termination_imminent = &terminationImminent;

namespace transport {

CurrentConnection::CurrentConnection(xpc_connection_t connection)
    : outer_(std::exchange(currentConnection, connection)) {}

CurrentConnection::~CurrentConnection() {
    currentConnection = outer_;
}

xpc_connection_t CurrentConnection::get() {
    return currentConnection;
}

}  // namespace transport

xpc_object_t xpc_retain(xpc_object_t object) {
    auto* counted = static_cast<transport::Object*>(object);
    if (counted != nullptr && isCounted(counted)) counted->retain();
    return object;
}

void xpc_release(xpc_object_t object) {
    auto* counted = static_cast<transport::Object*>(object);
    if (counted != nullptr && isCounted(counted)) counted->release();
}

xpc_type_t xpc_get_type(xpc_object_t object) {
    return object == nullptr ? nullptr : static_cast<transport::Object*>(object)->objectType;
}

xpc_connection_t xpc_dictionary_get_remote_connection(xpc_object_t event) {
    const xpc_type_t type = xpc_get_type(event);
    if (type == XPC_TYPE_ERROR) return transport::CurrentConnection::get();
    if (type == XPC_TYPE_DICTIONARY) return static_cast<transport::Dictionary*>(event)->remote();
    return nullptr;
}
