# Messages and connections.
target_sources(platform_core PRIVATE
    service_name.cpp
    wire_reader.cpp
    xpc_connection_api.cpp
    xpc_dictionary.cpp
    xpc_dictionary_api.cpp
    xpc_endpoint.cpp
    xpc_listener.cpp
    xpc_object.cpp
    xpc_outgoing.cpp
    xpc_stream.cpp
    xpc_stream_receive.cpp
)
