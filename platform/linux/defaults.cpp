#include <platform_defaults.h>
#include <platform_testing.h>

#include <new>
#include <utility>

#include "defaults_access.h"
#include "ending.h"

using defaults_place::FileState;

// ---- The file, as it comes and goes

// A file that could not be read is not tried at every turn: each would wait for its lock, and one that is read in the
// midst of an operation would change under it.
bool NSUserDefaultsBody::ensureLoaded() {
    return loaded || (!unreadable && tryToLoad());
}

bool NSUserDefaultsBody::tryToLoad() {
    if (loaded) return true;
    const StoreResult result = load(0);
    unreadable = result == StoreResult::unavailable;
    if (result == StoreResult::noMemory) throw std::bad_alloc();
    return result == StoreResult::ok;
}

// Closes the file and gives it another name, so that an empty one can take its place. What is in memory stays.
bool NSUserDefaultsBody::giveUpFile() {
    store.close();
    if (!defaults_place::setAside(path)) return false;
    values.forgetStore();
    identity.reset();
    loaded = true;
    return true;
}

// The file as it is; `wait` is for a lock, and longer when it is read for the first time. On a disk that cannot be
// written to, reading needs the ways that make nothing beside the file.
StoreResult NSUserDefaultsBody::readFile(int wait) {
    if (!std::exchange(triedToRead, true)) wait = defaults::Store::kLongWait;
    defaults::Values found;
    StoreResult result = store.open(path, SqliteDatabase::Mode::readWrite, wait);
    if (result == StoreResult::ok) result = store.read(found);
    if (result == StoreResult::unavailable) {
        store.close();
        found = {};
        result = store.openBesideWriter(path, 0);  // a lock was waited for just now
        if (result == StoreResult::ok) result = store.read(found);
        store.close();
    }
    if (result == StoreResult::ok) values.merge(std::move(found));
    return result;
}

StoreResult NSUserDefaultsBody::load(int wait) {
    if (path.empty()) path = defaults_place::standardPath();
    if (path.empty()) return StoreResult::unavailable;
    FileIdentity there;
    const FileState state = defaults_place::examine(path, there);
    if (state == FileState::missing) {
        loaded = true;
        return StoreResult::ok;
    }
    if (state != FileState::safe) return StoreResult::unavailable;

    const StoreResult result = readFile(wait);
    if (result == StoreResult::ok) {
        identity = there;
        loaded = true;
        return result;
    }
    store.close();
    if (result != StoreResult::damaged) return result;
    return giveUpFile() ? StoreResult::ok : StoreResult::unavailable;
}

// Makes sure that the file at our path is the one that the values know, whatever happened to it meanwhile: deleted, it
// is made again and gets everything; replaced, what is in the new one is added to what is here.
StoreResult NSUserDefaultsBody::followFile() {
    if (!loaded) {
        const StoreResult result = load(defaults::Store::kShortWait);
        if (result != StoreResult::ok) return result;
    }
    FileIdentity there;
    FileState state = defaults_place::examine(path, there);
    if (state == FileState::safe && identity == there) return StoreResult::ok;

    store.close();
    // What cannot be told, or is refused, may be the same file when it is looked at again.
    if (state != FileState::safe && state != FileState::missing) return StoreResult::unavailable;
    if (identity) {
        values.forgetStore();
        identity.reset();
    }
    if (state == FileState::missing) {
        if (!defaults_place::makeDirectory(defaults_place::directoryOf(path))) return StoreResult::unavailable;
        if (!defaults_place::createFile(path)) return StoreResult::unavailable;
        state = defaults_place::examine(path, there);
        if (state != FileState::safe) return StoreResult::unavailable;
        identity = there;
        return StoreResult::ok;
    }
    loaded = false;
    const StoreResult result = load(defaults::Store::kShortWait);
    unreadable = result == StoreResult::unavailable;
    return result;
}

StoreResult NSUserDefaultsBody::writeOnce() {
    StoreResult result = followFile();
    if (result == StoreResult::ok && !identity) result = followFile();  // a damaged file went aside just now
    if (result != StoreResult::ok) return result;
    if (!store.isReadyToWrite()) {
        defaults_place::closeToOthers(path);
        result = store.openForWriting(path);
        if (result != StoreResult::ok) return result;
        if (store.madeTables()) values.forgetStore();  // somebody emptied the file, or it is new
    }
    return store.write(values);
}

// After a failure of any kind the file is closed, so that the next try meets it afresh.
bool NSUserDefaultsBody::flush() {
    if (values.dirty() == nullptr) return true;
    if (access == Access::valuesOnly) return false;
    StoreResult result = writeOnce();
    if (result == StoreResult::damaged && giveUpFile()) result = writeOnce();
    if (result != StoreResult::ok) {
        store.close();
        return false;
    }
    values.forgetDirty();
    return true;
}

// ---- The object

std::unique_ptr<NSUserDefaults> DefaultsAccess::make(std::string path, NSUserDefaultsBody::Access access) {
    std::unique_ptr<NSUserDefaults> object(new NSUserDefaults);
    object->body_ = std::make_unique<NSUserDefaultsBody>(std::move(path), access);
    return object;
}

void DefaultsAccess::reopen(NSUserDefaults& object, std::string path) {
    object.body_ = std::make_unique<NSUserDefaultsBody>(std::move(path), NSUserDefaultsBody::Access::readWrite);
}

void platform_testing::use_defaults_at(const std::string& path) {
    DefaultsAccess::reopen(NSUserDefaults::standardUserDefaults(), path);
}

bool platform_defaults::readStore() {
    NSUserDefaultsBody& body = DefaultsAccess::body(NSUserDefaults::standardUserDefaults());
    const std::lock_guard lock(body.mutex);
    return body.tryToLoad();
}

NSUserDefaults::NSUserDefaults() = default;
NSUserDefaults::~NSUserDefaults() = default;

NSUserDefaults& NSUserDefaults::standardUserDefaults() {
    static NSUserDefaults& object = []() -> NSUserDefaults& {
        std::unique_ptr<NSUserDefaults> made = DefaultsAccess::make({}, NSUserDefaultsBody::Access::readWrite);
        runtime::setFlushAtEnding([] { return standardUserDefaults().synchronize(); });
        return *made.release();
    }();
    return object;
}

NSUserDefaults::Value NSUserDefaults::objectForKey(std::string_view key) const {
    const std::lock_guard lock(body_->mutex);
    (void)body_->ensureLoaded();  // a file that cannot be read just now leaves what was set here
    return body_->values.get(key);
}

std::optional<NSDictionary> NSUserDefaults::dictionaryForKey(std::string_view key) const {
    Value value = objectForKey(key);
    auto* dictionary = std::get_if<NSDictionary>(&value);
    return dictionary == nullptr ? std::nullopt : std::optional<NSDictionary>(std::move(*dictionary));
}

std::optional<NSUserDefaults::Array> NSUserDefaults::arrayForKey(std::string_view key) const {
    Value value = objectForKey(key);
    auto* array = std::get_if<Array>(&value);
    return array == nullptr ? std::nullopt : std::optional<Array>(std::move(*array));
}

// Setting reads the file first: what it holds under the key is then known to be replaced, not merely unseen.
void NSUserDefaults::setObject(NSString value, std::string_view key) {
    const std::lock_guard lock(body_->mutex);
    (void)body_->ensureLoaded();
    body_->values.setText(key, std::move(value));
}

void NSUserDefaults::setObject(NSNumber value, std::string_view key) {
    const std::lock_guard lock(body_->mutex);
    (void)body_->ensureLoaded();
    body_->values.setNumber(key, value);
}

void NSUserDefaults::setObject(NSDictionary value, std::string_view key) {
    const std::lock_guard lock(body_->mutex);
    (void)body_->ensureLoaded();
    body_->values.setDictionary(key, value);
}

void NSUserDefaults::setObject(const NSMutableArray& value, std::string_view key) {
    const std::lock_guard lock(body_->mutex);
    (void)body_->ensureLoaded();
    body_->values.setArray(key, *value.body_);
}

void NSUserDefaults::removeObjectForKey(std::string_view key) {
    const std::lock_guard lock(body_->mutex);
    if (body_->ensureLoaded()) {
        body_->values.remove(key);
    } else {
        body_->values.removeUnseen(key);
    }
}

bool NSUserDefaults::synchronize() {
    const std::lock_guard lock(body_->mutex);
    try {
        return body_->flush();
    } catch (const std::bad_alloc&) {
        body_->store.close();
        return false;
    }
}
