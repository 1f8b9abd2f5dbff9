#include <Foundation/Foundation.h>
#include <sys/stat.h>

#include <cerrno>

NSFileManager& NSFileManager::defaultManager() {
    static NSFileManager manager;
    return manager;
}

bool NSFileManager::fileExistsAtPath(const NSString& path) const {
    struct stat status {};
    while (stat(path.c_str(), &status) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}
