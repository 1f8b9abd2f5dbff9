#include <Foundation/Foundation.h>

#include "file_status.h"

NSFileManager& NSFileManager::defaultManager() {
    static NSFileManager manager;
    return manager;
}

bool NSFileManager::fileExistsAtPath(const NSString& path) const {
    struct stat status {};
    return statFile(path, status);
}
