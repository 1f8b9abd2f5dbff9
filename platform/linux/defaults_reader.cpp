#include <platform_instance.h>
#include <platform_store_reader.h>

#include <new>

#include "defaults_access.h"
#include "instance_lock.h"

namespace platform_store {

namespace {

ReadResult resultOf(StoreResult result, defaults::Store::Schema schema) {
    switch (result) {
        case StoreResult::ok:
            return ReadResult::ok;
        case StoreResult::damaged:
            return schema == defaults::Store::Schema::newer ? ReadResult::newer : ReadResult::damaged;
        case StoreResult::noMemory:
            throw std::bad_alloc();
        default:
            return ReadResult::unavailable;
    }
}

// While nobody runs, a shared lock keeps a helper from starting in the midst of the reading: without its log's files
// the store is read without locks.
ReadResult readInto(defaults::Values& values, const std::string& path) {
    FileIdentity identity;
    switch (path.empty() ? defaults_place::FileState::missing : defaults_place::examine(path, identity)) {
        case defaults_place::FileState::missing:
            return ReadResult::missing;
        case defaults_place::FileState::refused:
            return ReadResult::refused;
        case defaults_place::FileState::unknown:
            return ReadResult::unavailable;
        default:
            break;
    }
    bool held = false;
    const UniqueFd lock = instance_lock::share(defaults_place::directoryOf(path), held);
    defaults::Store store;
    defaults::Values found;
    // A starting helper waits for us no longer than for one that ends, so with the lock in hand we are quick.
    const int wait = lock ? defaults::Store::kShortWait : defaults::Store::kLongWait;
    StoreResult result = store.openBesideWriter(path, wait);
    if (result == StoreResult::ok) result = store.read(found);
    if (result == StoreResult::ok) values.merge(std::move(found));
    return resultOf(result, store.schema());
}

}  // namespace

std::string standardPath() {
    return defaults_place::standardPath();
}

std::vector<std::string> filesSetAside(const std::string& path) {
    return defaults_place::filesSetAside(path);
}

StoreReader::StoreReader(const std::string& path)
    : defaults_(DefaultsAccess::make(path, NSUserDefaultsBody::Access::valuesOnly)) {
    NSUserDefaultsBody& body = DefaultsAccess::body(*defaults_);
    result_ = readInto(body.values, path);
    body.loaded = true;
}

StoreReader::~StoreReader() = default;

NSUserDefaults::Value StoreReader::objectForKey(std::string_view key) const {
    return defaults_->objectForKey(key);
}

std::vector<NSString> StoreReader::allKeys() const {
    return DefaultsAccess::body(*defaults_).values.keys();
}

}  // namespace platform_store

platform_instance::Status platform_instance::query() {
    Status status;
    const std::string directory = defaults_place::standardDirectory();
    if (directory.empty()) return status;
    (void)instance_lock::share(directory, status.running);
    if (!status.running) return status;
    const instance_lock::Holder holder = instance_lock::readHolder(directory);
    status.pid = holder.pid;
    status.startedAt = holder.startedAt;
    return status;
}
