# The core of the platform layer: queues, timers and the ending. xpc.cmake adds the messages.
add_library(platform_core STATIC
    census.cpp
    clock.cpp
    descriptors.cpp
    dispatch.cpp
    ending.cpp
    gate.cpp
    io_loop.cpp
    lookout.cpp
    main_queue.cpp
    manual_clock.cpp
    queue.cpp
    runtime.cpp
    thread.cpp
    timer_heap.cpp
    timer_memory.cpp
    timer_service.cpp
    timer_set.cpp
    timer_source.cpp
    worker_pool.cpp
)
target_include_directories(platform_core PUBLIC "${PROJECT_SOURCE_DIR}/platform/include" "${PROJECT_SOURCE_DIR}")
target_link_libraries(platform_core PUBLIC Threads::Threads)
