// The way into a defaults object for the parts of this folder: the standard object's file, tests' files, and readers.
#pragma once

#include <Foundation/Foundation.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "defaults_place.h"
#include "defaults_store.h"
#include "defaults_values.h"

struct NSUserDefaultsBody {
    enum class Access { readWrite, valuesOnly };

    /// `file` is empty for the standard place, which is then looked up at first use.
    explicit NSUserDefaultsBody(std::string file, Access accessTo) : path(std::move(file)), access(accessTo) {}

    /// Reads the file unless that was done or tried; false when it could not be read. Throws std::bad_alloc.
    bool ensureLoaded();
    /// Reads the file unless that was done; false when it cannot be read just now. Throws std::bad_alloc.
    bool tryToLoad();
    bool flush();

    std::mutex mutex;
    std::string path;
    const Access access;
    defaults::Values values;
    defaults::Store store;
    /// The file whose content the values include; nothing when there was none.
    std::optional<FileIdentity> identity;
    bool loaded = false;
    bool unreadable = false;  // when it was last tried
    bool triedToRead = false;

  private:
    StoreResult load(int wait);
    StoreResult readFile(int wait);
    StoreResult followFile();
    StoreResult writeOnce();
    bool giveUpFile();
};

struct DefaultsAccess {
    static std::unique_ptr<NSUserDefaults> make(std::string path, NSUserDefaultsBody::Access access);
    static NSUserDefaultsBody& body(const NSUserDefaults& object) { return *object.body_; }
    static void reopen(NSUserDefaults& object, std::string path);
};
