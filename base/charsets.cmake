# Character sets, platform strings and path names. What calls the platform's string objects has files of its own, so
# that a program which links the rest of this library does not need the platform's foundation.
target_sources(base PRIVATE
    LFileName.cpp
)
