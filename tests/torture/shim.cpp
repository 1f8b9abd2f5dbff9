// Loaded before the libraries of a helper that is to be tormented: makes the k-th call of a kind fail, once or from k
// on, or ends the process there. The driver says what and when through a small file that both have mapped.
//
// Kinds, and which calls they count while they are in force:
//   allocation   malloc and its kin, operator new, SQLite's included (it has no allocator of its own)
//   store        calls on the store's files: open, read, write, sync, resize, stat, make, rename, remove
//   lock         record locks, as SQLite takes them
//   descriptor   calls that make a descriptor
// Deeds: fail with an error number (allocation: no memory), write only half, die before the call, die after half of it,
// raise a fault inside it.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

enum Kind : int64_t { kNone, kAllocation, kStore, kLock, kDescriptor };
enum Deed : int64_t { kFail, kHalf, kDie, kDieHalfway, kRaise };

/// As the driver packs it: eight numbers of eight bytes.
struct Plan {
    std::atomic<int64_t> kind, left, sticky, deed, number;  // `left` is 1 when the next call is meant
    std::atomic<int64_t> fromLoad;                          // nothing counts before the store is first opened
    std::atomic<int64_t> seen, hits;
};

Plan* plan = nullptr;
thread_local bool lookingUp = false;  // this thread asks for a real function, and what that needs is granted
thread_local bool spared = false;     // it is in a library that is known not to survive what the plan does
thread_local bool begun = false;  // its own function runs: before that a sanitizer readies it, and cannot be refused

void Raise(int signal) {
    volatile int zero = 0;
    switch (signal) {
        case SIGSEGV: {
            volatile int* volatile nowhere = nullptr;
            *nowhere = zero;
            break;
        }
        case SIGBUS: {
            const int fd = static_cast<int>(syscall(SYS_memfd_create, "empty", 0));
            *static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)) = 1;
            break;
        }
        case SIGFPE:
#if defined(__x86_64__) || defined(__i386__)
            asm volatile("xor %%edx, %%edx; mov $1, %%eax; xor %%ecx, %%ecx; div %%ecx" ::: "eax", "ecx", "edx");
#endif
            break;
        default:
            __builtin_trap();
    }
}

/// Counts a call; true when it is the driver's turn.
bool Meant(Kind kind) {
    if (plan == nullptr || lookingUp || spared || !begun || plan->kind.load() != kind || plan->fromLoad.load() != 0)
        return false;
    plan->seen.fetch_add(1);
    const int64_t left = plan->left.fetch_sub(1);
    if (left > 1 || (left < 1 && plan->sticky.load() == 0)) return false;
    plan->hits.fetch_add(1);
    return true;
}

/// For calls that can only fail or be the last; true when the call is to return its failure, with errno set.
bool Fails(Kind kind) {
    if (!Meant(kind)) return false;
    switch (plan->deed.load()) {
        case kDie:
        case kDieHalfway:
            _exit(77);
        case kRaise:
            Raise(static_cast<int>(plan->number.load()));
            return false;
        case kHalf:
            return false;
        default:
            errno = kind == kAllocation ? ENOMEM : static_cast<int>(plan->number.load());
            return true;
    }
}

template <typename Function>
Function* Next(Function*& found, const char* name) {
    if (found != nullptr) return found;
    lookingUp = true;
    found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    lookingUp = false;
    return found;
}

bool OfStore(const char* path) {
    if (std::strstr(path, "orvinfree213") == nullptr || std::strstr(path, "mach-services") != nullptr) return false;
    if (plan != nullptr && std::strstr(path, "defaults.sqlite3") != nullptr) plan->fromLoad.store(0);
    return true;
}

struct ThreadStart {
    void* (*function)(void*);
    void* argument;
};

void* RunThread(void* start) {
    const ThreadStart own = *static_cast<ThreadStart*>(start);
    std::free(start);
    begun = true;
    return own.function(own.argument);
}

/// Maps the plan; processes that the helper starts are left alone.
[[gnu::constructor]] void Begin() {
    begun = true;
    unsetenv("LD_PRELOAD");
    const char* name = std::getenv("TORTURE_PLAN");
    if (name == nullptr || std::strcmp(program_invocation_short_name, "schedulehelper") != 0) return;
    const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, name, O_RDWR | O_CLOEXEC));
    void* place = mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (place != MAP_FAILED) plan = static_cast<Plan*>(place);
}

}  // namespace

#define NEXT(name)                     \
    static decltype(name)* next##name; \
    Next(next##name, #name)

extern "C" {

// ---- Memory. What is asked for while the real functions are looked up comes from a small reserve.

static char reserve[4096];
static size_t reserved;
static bool OfReserve(const void* block) {
    return block >= static_cast<void*>(reserve) && block < static_cast<void*>(reserve + sizeof reserve);
}
static void* FromReserve(size_t size) {
    reserved = (reserved + 15) & ~size_t{15};
    void* block = reserve + reserved;
    reserved += size;
    return reserved <= sizeof reserve ? block : nullptr;
}
#define NEXT_MEMORY(name)                        \
    static decltype(name)* next##name;           \
    if (next##name == nullptr) {                 \
        if (lookingUp) return FromReserve(size); \
        Next(next##name, #name);                 \
    }

void* malloc(size_t size) noexcept {
    NEXT_MEMORY(malloc);
    return Fails(kAllocation) ? nullptr : nextmalloc(size);
}
void* calloc(size_t count, size_t each) noexcept {
    const size_t size = count * each;
    NEXT_MEMORY(calloc);
    return Fails(kAllocation) ? nullptr : nextcalloc(count, each);
}
void* realloc(void* block, size_t size) noexcept {
    NEXT_MEMORY(realloc);
    return Fails(kAllocation) ? nullptr : nextrealloc(block, size);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*), void* argument) {
    NEXT(pthread_create);
    auto* start = static_cast<ThreadStart*>(std::malloc(sizeof(ThreadStart)));
    if (start == nullptr) return EAGAIN;
    *start = {function, argument};
    const int result = nextpthread_create(thread, attributes, RunThread, start);
    if (result != 0) std::free(start);
    return result;
}
void* aligned_alloc(size_t alignment, size_t size) noexcept {
    NEXT_MEMORY(aligned_alloc);
    return Fails(kAllocation) ? nullptr : nextaligned_alloc(alignment, size);
}
void free(void* block) noexcept {
    static decltype(free)* nextfree;
    if (nextfree == nullptr && lookingUp) return;  // a few bytes of the loader's, once
    Next(nextfree, "free");
    if (!OfReserve(block)) nextfree(block);
}

// The property list library does not look whether it got memory. Its caller asks beforehand for as much as it may need.
#define PARSER(name)                                           \
    int name(const char* text, uint32_t length, void** root);  \
    int name(const char* text, uint32_t length, void** root) { \
        NEXT(name);                                            \
        spared = true;                                         \
        const int result = next##name(text, length, root);     \
        spared = false;                                        \
        return result;                                         \
    }
PARSER(plist_from_xml)
PARSER(plist_from_bin)

void plist_dict_new_iter(void* dictionary, void** iterator);
void plist_dict_new_iter(void* dictionary, void** iterator) {
    NEXT(plist_dict_new_iter);
    spared = true;
    nextplist_dict_new_iter(dictionary, iterator);
    spared = false;
}

// ---- The store's files

#define OPEN(name, ...)                                                            \
    va_list more;                                                                  \
    va_start(more, flags);                                                         \
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : mode_t{0}; \
    va_end(more);                                                                  \
    NEXT(name);                                                                    \
    if (OfStore(path) && Fails(kStore)) return -1;                                 \
    return Fails(kDescriptor) ? -1 : next##name(__VA_ARGS__, flags, mode)

int open(const char* path, int flags, ...) {
    OPEN(open, path);
}
int open64(const char* path, int flags, ...) {
    OPEN(open64, path);
}
int openat(int folder, const char* path, int flags, ...) {
    OPEN(openat, folder, path);
}
int openat64(int folder, const char* path, int flags, ...) {
    OPEN(openat64, folder, path);
}

#define WRITE(name)                                                     \
    NEXT(name);                                                         \
    if (!Meant(kStore)) return next##name(fd, bytes, count, offset);    \
    const int64_t deed = plan->deed.load();                             \
    if (deed == kHalf) return next##name(fd, bytes, count / 2, offset); \
    if (deed == kDieHalfway) next##name(fd, bytes, count / 2, offset);  \
    if (deed == kDie || deed == kDieHalfway) _exit(77);                 \
    if (deed == kRaise) Raise(static_cast<int>(plan->number.load()));   \
    errno = static_cast<int>(plan->number.load());                      \
    return -1

ssize_t pwrite(int fd, const void* bytes, size_t count, off_t offset) {
    WRITE(pwrite);
}
ssize_t pwrite64(int fd, const void* bytes, size_t count, off64_t offset) {
    WRITE(pwrite64);
}

#define STORE(name, ...) \
    NEXT(name);          \
    return Fails(kStore) ? -1 : next##name(__VA_ARGS__)
#define STORE_PATH(name, path, ...) \
    NEXT(name);                     \
    return OfStore(path) && Fails(kStore) ? -1 : next##name(__VA_ARGS__)

ssize_t pread(int fd, void* bytes, size_t count, off_t offset) {
    STORE(pread, fd, bytes, count, offset);
}
ssize_t pread64(int fd, void* bytes, size_t count, off64_t offset) {
    STORE(pread64, fd, bytes, count, offset);
}
int fsync(int fd) {
    STORE(fsync, fd);
}
int fdatasync(int fd) {
    STORE(fdatasync, fd);
}
int ftruncate(int fd, off_t size) noexcept {
    STORE(ftruncate, fd, size);
}
int ftruncate64(int fd, off64_t size) noexcept {
    STORE(ftruncate64, fd, size);
}
int mkdir(const char* path, mode_t mode) noexcept {
    STORE_PATH(mkdir, path, path, mode);
}
int chmod(const char* path, mode_t mode) noexcept {
    STORE_PATH(chmod, path, path, mode);
}
int unlink(const char* path) noexcept {
    STORE_PATH(unlink, path, path);
}
int lstat(const char* path, struct stat* status) noexcept {
    STORE_PATH(lstat, path, path, status);
}
int lstat64(const char* path, struct stat64* status) noexcept {
    STORE_PATH(lstat64, path, path, status);
}
int renameat2(int from, const char* old, int to, const char* path, unsigned flags) noexcept {
    STORE_PATH(renameat2, path, from, old, to, path, flags);
}

#define RECORD_LOCK(name)                                                                    \
    va_list more;                                                                            \
    va_start(more, command);                                                                 \
    void* const argument = va_arg(more, void*);                                              \
    va_end(more);                                                                            \
    NEXT(name);                                                                              \
    if (command == F_SETLK && Fails(kLock)) return -1;                                       \
    if ((command == F_DUPFD || command == F_DUPFD_CLOEXEC) && Fails(kDescriptor)) return -1; \
    return next##name(fd, command, argument)

int fcntl(int fd, int command, ...) {
    RECORD_LOCK(fcntl);
}
int fcntl64(int fd, int command, ...) {
    RECORD_LOCK(fcntl64);
}

#if defined(__i386__)
// What the calls are named in a 32-bit program whose times have 64 bits.
int __lstat64_time64(const char* path, void* status) noexcept {
    STORE_PATH(__lstat64_time64, path, path, status);
}
int __fcntl_time64(int fd, int command, ...) {
    RECORD_LOCK(__fcntl_time64);
}
#endif

// ---- Descriptors

#define DESCRIPTOR(name, ...) \
    NEXT(name);               \
    return Fails(kDescriptor) ? -1 : next##name(__VA_ARGS__)

int accept4(int fd, struct sockaddr* address, socklen_t* length, int flags) {
    DESCRIPTOR(accept4, fd, address, length, flags);
}
int eventfd(unsigned value, int flags) noexcept {
    DESCRIPTOR(eventfd, value, flags);
}
int socket(int domain, int type, int protocol) noexcept {
    DESCRIPTOR(socket, domain, type, protocol);
}
int dup(int fd) noexcept {
    DESCRIPTOR(dup, fd);
}
DIR* opendir(const char* path) {
    NEXT(opendir);
    return Fails(kDescriptor) ? nullptr : nextopendir(path);
}
long syscall(long number, ...) noexcept {
    va_list more;
    va_start(more, number);
    long arguments[6];
    for (long& each : arguments) each = va_arg(more, long);
    va_end(more);
    NEXT(syscall);
    if (number == SYS_pidfd_open && Fails(kDescriptor)) return -1;
    return nextsyscall(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

}  // extern "C"

// ---- operator new of a helper that takes it from a library; one that holds its own asks the functions above in it

void* operator new(size_t size) {
    if (void* block = malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}
void* operator new[](size_t size) {
    return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return malloc(size == 0 ? 1 : size);
}
void* operator new(size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<size_t>(alignment);
    if (void* block = aligned_alloc(unit, (size + unit - 1) / unit * unit)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    free(block);
}
void operator delete[](void* block) noexcept {
    free(block);
}
void operator delete(void* block, size_t) noexcept {
    free(block);
}
void operator delete[](void* block, size_t) noexcept {
    free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    free(block);
}
void operator delete(void* block, size_t, std::align_val_t) noexcept {
    free(block);
}
