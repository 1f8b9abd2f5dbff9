// Messages and connections: the subset of the platform's inter-process interface that this project calls.
//
// Objects (connections, dictionaries, the error singletons) are counted: create calls return one reference, retain and
// release are atomic, and every object handed to a handler is borrowed for that call. A connection and a message stay
// alive for the whole handler call that names them, so their addresses serve as identifiers while it runs.
//
// Handlers of one connection run one at a time on a serial queue of its own, whatever thread serves it; a listener's
// run on the queue that it was created with. Nothing here blocks: sending appends to a queue, cancelling is
// asynchronous.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>

#include <dispatch/dispatch.h>

struct _xpc_type_s;
struct _xpc_connection_s;

using xpc_object_t = void*;
using xpc_type_t = const _xpc_type_s*;
using xpc_connection_t = _xpc_connection_s*;
using xpc_handler_t = std::function<void(xpc_object_t)>;

extern const _xpc_type_s _xpc_type_connection;
extern const _xpc_type_s _xpc_type_dictionary;
extern const _xpc_type_s _xpc_type_error;
#define XPC_TYPE_CONNECTION (&_xpc_type_connection)
#define XPC_TYPE_DICTIONARY (&_xpc_type_dictionary)
#define XPC_TYPE_ERROR (&_xpc_type_error)

// The error singletons, compared by address.
//   CONNECTION_INVALID      this connection is unusable for good: cancelled, no such service, the accepted peer is gone
//   CONNECTION_INTERRUPTED  the named service ended; the next send looks the name up again
//   TERMINATION_IMMINENT    never produced by this layer; the constant exists for those who tell errors apart
extern _xpc_type_s* const _xpc_error_connection_invalid;
extern _xpc_type_s* const _xpc_error_connection_interrupted;
extern _xpc_type_s* const _xpc_error_termination_imminent;
#define XPC_ERROR_CONNECTION_INVALID (static_cast<xpc_object_t>(_xpc_error_connection_invalid))
#define XPC_ERROR_CONNECTION_INTERRUPTED (static_cast<xpc_object_t>(_xpc_error_connection_interrupted))
#define XPC_ERROR_TERMINATION_IMMINENT (static_cast<xpc_object_t>(_xpc_error_termination_imminent))

/// Flag of xpc_connection_create_mach_service: offer the name instead of connecting to it.
constexpr uint64_t XPC_CONNECTION_MACH_SERVICE_LISTENER = 1;

// ---- Objects

xpc_object_t xpc_retain(xpc_object_t object);
void xpc_release(xpc_object_t object);

/// Null for a null object.
xpc_type_t xpc_get_type(xpc_object_t object);

// ---- Dictionaries
//
// Keys are NUL-terminated, compared exactly. A setter copies its value and replaces any earlier value of the key,
// whatever its type; a null key, a null string or UUID address, or a null data address with a size above 0 stores
// nothing. A typed getter gives its neutral result (false, 0,
// 0.0, null, -1) when the key is missing or holds another type; there is no conversion between
// types. Addresses returned by getters point into the dictionary and are valid while it lives and the key is not set
// again. A dictionary belongs to one thread at a time.

/// An empty dictionary. `keys` and `values` are null, `count` is 0: filling at creation is not offered.
xpc_object_t xpc_dictionary_create(const char* const* keys, const xpc_object_t* values, size_t count);

/// An empty reply that routes back to the sender of `message`; null unless `message` came from the wire, expects a
/// reply and has not had one made yet.
xpc_object_t xpc_dictionary_create_reply(xpc_object_t message);

void xpc_dictionary_set_bool(xpc_object_t dictionary, const char* key, bool value);
void xpc_dictionary_set_int64(xpc_object_t dictionary, const char* key, int64_t value);
void xpc_dictionary_set_uint64(xpc_object_t dictionary, const char* key, uint64_t value);
void xpc_dictionary_set_double(xpc_object_t dictionary, const char* key, double value);
/// Signed 64-bit, passed through untouched; the unit is the vocabulary's.
void xpc_dictionary_set_date(xpc_object_t dictionary, const char* key, int64_t value);
void xpc_dictionary_set_data(xpc_object_t dictionary, const char* key, const void* bytes, size_t length);
/// `uuid` is the address of 16 bytes.
void xpc_dictionary_set_uuid(xpc_object_t dictionary, const char* key, const unsigned char* uuid);
void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* text);
/// Duplicates `fd`; the caller keeps his own. An invalid descriptor stores nothing.
void xpc_dictionary_set_fd(xpc_object_t dictionary, const char* key, int fd);

/// Not null when the dictionary holds an entry under `key`, of whatever type. The result is for that test alone: it is
/// no object of its own and must not be retained or asked for its type.
xpc_object_t xpc_dictionary_get_value(xpc_object_t dictionary, const char* key);
size_t xpc_dictionary_get_count(xpc_object_t dictionary);

bool xpc_dictionary_get_bool(xpc_object_t dictionary, const char* key);
int64_t xpc_dictionary_get_int64(xpc_object_t dictionary, const char* key);
uint64_t xpc_dictionary_get_uint64(xpc_object_t dictionary, const char* key);
double xpc_dictionary_get_double(xpc_object_t dictionary, const char* key);
int64_t xpc_dictionary_get_date(xpc_object_t dictionary, const char* key);
/// `length` receives the number of bytes, 0 with a null result.
const void* xpc_dictionary_get_data(xpc_object_t dictionary, const char* key, size_t* length);
const unsigned char* xpc_dictionary_get_uuid(xpc_object_t dictionary, const char* key);
const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key);
/// A new descriptor that the caller closes, or -1.
int xpc_dictionary_dup_fd(xpc_object_t dictionary, const char* key);

/// The connection on which a message, or a reply, arrived; for an error object the connection whose handler is being
/// called on this thread. Null otherwise. Borrowed.
xpc_connection_t xpc_dictionary_get_remote_connection(xpc_object_t event);

// ---- Connections
//
// A new connection is suspended and has no handler; suspension is counted and starts at one. While it is suspended no
// handler runs and nothing is sent. Its last event is CONNECTION_INVALID, exactly once, after cancellation or when the
// other side is gone for good; a client of a named service gets CONNECTION_INTERRUPTED when the service ends, and the
// next send connects again.

/// A connection to the service `name`, looked up at the first resume. Handlers run on a serial queue of the connection,
/// over `queue` or, when that is null, over the default concurrent queue. Null for a name that is null, empty, longer
/// than 200 bytes, begins with '.' or holds '/'.
xpc_connection_t xpc_connection_create(const char* name, dispatch_queue_t queue);

/// Without the listener flag the same as xpc_connection_create. With it, a listener that owns the name: its handler
/// receives every new peer as a suspended connection without a handler, on `queue`. Null when another live process owns
/// the name or the name cannot be offered here (unsafe directory, no permission).
xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t queue, uint64_t flags);

/// Replaces the handler; asynchronous, a running handler is not interrupted.
void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler);

void xpc_connection_suspend(xpc_connection_t connection);
/// Never runs a handler inside the call. More resumes than suspends is an error of the caller.
void xpc_connection_resume(xpc_connection_t connection);

/// Asynchronous and idempotent: unsent messages are dropped, pending replies and then the handler get
/// CONNECTION_INVALID, then none runs again. Legal inside the connection's own handler.
void xpc_connection_cancel(xpc_connection_t connection);

/// Sends a copy of `message` as it stands; first in, first out, from any thread, with no report.
void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message);

/// As xpc_connection_send_message; `handler` runs exactly once, on `queue`, with the reply or with an error.
void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message, dispatch_queue_t queue,
                                            xpc_handler_t handler);

/// Runs `barrier` on the connection's queue once every message sent before it has left for the other side, or has been
/// dropped because the connection ended. Exactly once, never inside the call.
void xpc_connection_send_barrier(xpc_connection_t connection, dispatch_block_t barrier);

/// Process identifier of the peer as it was when the connection was made, at most 99999: the transport's rule refuses
/// larger ones, which elsewhere only means "no identifier", so the layer reports the smaller of it and 99999. 0 when
/// the kernel names none (a peer in another process namespace).
pid_t xpc_connection_get_pid(xpc_connection_t connection);
uid_t xpc_connection_get_euid(xpc_connection_t connection);
