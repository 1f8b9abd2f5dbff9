// The mount of a path: the kernel names it by number in the fdinfo of any descriptor on it, and /proc/self/mountinfo
// gives that number's directory. Unlike a comparison of prefixes this is right for mounts that hide each other, for
// bind mounts and for links.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform_mount.h"

namespace {

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

/// A file read line by line, of whatever length.
class Lines {
  public:
    explicit Lines(const char* path) : file_(std::fopen(path, "re")) {}
    ~Lines() { std::free(line_); }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    /// The next line, valid until the next call; null at the end.
    char* next() { return file_ != nullptr && getline(&line_, &size_, file_.get()) > 0 ? line_ : nullptr; }

  private:
    File file_;
    char* line_ = nullptr;
    size_t size_ = 0;
};

/// The number of the mount that `path` lies on; -1 when that cannot be told.
int mountId(const char* path) {
    const int descriptor = open(path, O_PATH | O_CLOEXEC);
    if (descriptor < 0) return -1;
    char name[64];
    std::snprintf(name, sizeof name, "/proc/self/fdinfo/%d", descriptor);
    int id = -1;
    Lines lines(name);
    for (char* line = lines.next(); line != nullptr; line = lines.next()) {
        if (std::sscanf(line, "mnt_id: %d", &id) == 1) break;
    }
    close(descriptor);
    return id;
}

bool isOctal(char c) {
    return c >= '0' && c <= '7';
}

/// Copies a field, up to the space behind it; space, tab, line feed and backslash stand there as "\040" and the like.
void copyField(const char* field, char* out, size_t size) {
    size_t length = 0;
    while (*field != '\0' && *field != ' ' && length + 1 < size) {
        if (field[0] == '\\' && isOctal(field[1]) && isOctal(field[2]) && isOctal(field[3])) {
            out[length++] = static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0'));
            field += 4;
        } else {
            out[length++] = *field++;
        }
    }
    out[length] = '\0';
}

}  // namespace

bool platform_mount_point(const char* path, char* out, size_t size) {
    const int wanted = size == 0 ? -1 : mountId(path);
    if (wanted < 0) return false;
    Lines lines("/proc/self/mountinfo");
    for (const char* line = lines.next(); line != nullptr; line = lines.next()) {
        // "36 35 98:0 /root /mount/point options ...": number, parent, device, root, mount point
        int id = -1;
        int field = 0;
        if (std::sscanf(line, "%d %*d %*s %*s %n", &id, &field) == 1 && field > 0 && id == wanted) {
            copyField(line + field, out, size);
            return true;
        }
    }
    return false;
}
