// Where the store lives, and whether what is there may be trusted.
//
// The folder is ours alone (mode 0700). A folder or a file that belongs to somebody else, that others may write to,
// that is a link, or a file with more than one name, is refused: nothing is read from it or written to it. A folder or
// a file of ours that others may merely read is closed to them. Nothing outside the store's own folder is touched.
#pragma once

#include <string>
#include <vector>

#include "file_status.h"

namespace defaults_place {

/// $XDG_DATA_HOME (only if absolute), else ~/.local/share, followed by our folder's name; "" when no home can be found.
std::string standardDirectory();

/// The store in the standard directory; "" when there is none.
std::string standardPath();

std::string directoryOf(const std::string& path);

/// Makes the folder and those above it as needed. False when it cannot be had or is refused.
bool makeDirectory(const std::string& directory);

/// True when `directory` may be used: ours, a folder, no link, writable by nobody else.
bool directoryIsSafe(const std::string& directory);

enum class FileState { missing, safe, refused, unknown };

/// Looks at the file and its folder. `identity` is set when it is safe.
FileState examine(const std::string& path, FileIdentity& identity);

/// Takes others' rights to read from the file and its folder; both are ours.
void closeToOthers(const std::string& path);

/// Makes an empty file with mode 0600 unless there is one.
bool createFile(const std::string& path);

/// Gives the file, with what SQLite keeps beside it, a name that nothing has yet. False when that failed; the file then
/// stands where it stood.
bool setAside(const std::string& path);

/// The paths of files set aside so far, oldest first.
std::vector<std::string> filesSetAside(const std::string& path);

}  // namespace defaults_place
