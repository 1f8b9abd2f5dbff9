// Looking at the store from outside: for tools that show what the helper holds, while it runs or while it does not.
//
// Reading makes, changes and locks out nothing: no file appears beside the store, and a running helper goes on writing.
// What is read is the store as of one moment.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <Foundation/Foundation.h>

namespace platform_store {

/// The store's path in the user's standard place; "" when no home directory can be found.
std::string standardPath();

/// Files that stood at `path` and could not be used, oldest first; they were given other names and kept.
std::vector<std::string> filesSetAside(const std::string& path);

enum class ReadResult {
    ok,
    /// There is no file: nothing was ever stored.
    missing,
    /// The file is no database, is damaged, or holds something else. The helper will set it aside at its next start.
    damaged,
    /// A later version of the program wrote it. The helper of this version would set it aside too.
    newer,
    /// The file or its folder is a link, belongs to somebody else, or others may write to it.
    refused,
    /// It cannot be read just now: rights, a lock, an error of the disk.
    unavailable,
};

/// One look at the store: everything in it is read by the constructor. Unless the result is `ok` it is empty. One
/// thread at a time.
class StoreReader {
  public:
    explicit StoreReader(const std::string& path = standardPath());
    ~StoreReader();

    [[nodiscard]] ReadResult result() const { return result_; }
    /// A defaults object that holds what was read. Setting on it changes nothing but the object; its `synchronize`
    /// writes nothing and returns false when there is something to write.
    [[nodiscard]] NSUserDefaults& defaults() const { return *defaults_; }
    [[nodiscard]] NSUserDefaults::Value objectForKey(std::string_view key) const;
    /// In no particular order.
    [[nodiscard]] std::vector<NSString> allKeys() const;

  private:
    ReadResult result_ = ReadResult::missing;
    std::unique_ptr<NSUserDefaults> defaults_;
};

}  // namespace platform_store
