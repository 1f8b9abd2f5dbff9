// Two paths, divided by a line feed, through every operation that is plain text, into buffers of exactly 260 bytes; and
// what must hold of the results: the pieces of a path are pieces of it, a relative path leads back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/LFile.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

template <typename Operation>
std::string Into(Operation operation) {
    const std::unique_ptr<char[]> out(new char[260]);
    operation(out.get());
    const std::string text = out.get();
    Require(text.size() < 260);
    return text;
}

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

void CheckPieces(const std::string& path) {
    const char* const text = path.c_str();
    const std::string file = Into([&](char* out) { LFile::_GetFileFromPath(out, text); });
    const std::string name = Into([&](char* out) { LFile::_GetFileNameFromPath(out, text); });
    const std::string folder = Into([&](char* out) { LFile::_GetFolderFromPath(out, text); });
    const std::string extension = Into([&](char* out) { LFile::_GetFileExtensionFromPath(out, text); });
    const std::string base = Into([&](char* out) { LFile::_GetBaseFolderFromPath(out, text); });
    Require(path.starts_with(folder) && path.starts_with(base) && file.starts_with(name));
    Require(file.find_first_of("/\\") == std::string::npos && extension.find_first_of("/\\") == std::string::npos);
    Require(extension.empty() || extension[0] == '.');
    if (path.size() > 259) return;
    const size_t separator = path.find_last_of("/\\");
    Require(file == path.substr(separator + 1) && path.ends_with(extension));
    if (name != file) Require(name + extension == file);
    if (separator != std::string::npos && separator > 0) {
        Require(folder == path.substr(0, separator));
        if (path[separator] == '/' && !IsSeparator(path[separator - 1]))
            Require(Into([&](char* out) {
                        LFile::_MakeFilePath(out, folder.c_str(), name.c_str(), name == file ? "" : extension.c_str());
                    }) == path);
    }
}

void CheckNames(const std::string& text) {
    const std::string name = Into([&](char* out) { (void)LFile::PreprocessName(text.c_str(), out); });
    Require(LFile::IsFileValid(name.c_str()) == !name.empty());
    const std::string path = Into([&](char* out) { (void)LFile::PreprocessPath(text.c_str(), out); });
    Require(name.size() >= 259 || path.size() >= name.size());
    const std::string escaped = Into([&](char* out) { LFile::EscapeFilePath(text.c_str(), out); });
    std::string plain;
    for (size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '\\' && i + 1 < escaped.size() && std::strchr("\"`", escaped[i + 1]) != nullptr) ++i;
        plain += escaped[i];
    }
    if (text.find('\\') == std::string::npos) Require(text.starts_with(plain));
}

/// Whether both are plain absolute paths, "/a/b": one '/' between components, none at the end, no components of dots.
bool IsPlain(const std::string& path) {
    if (path.size() < 2 || path[0] != '/' || path.back() == '/') return false;
    return path.find_first_of("\\.:") == std::string::npos && path.find("//") == std::string::npos;
}

void CheckWayBack(const std::string& base, const std::string& target) {
    bool fits = false;
    const std::string relative =
        Into([&](char* out) { fits = LFile::GetRelativePathFromAbsolutePath(out, base.c_str(), target.c_str()); });
    const std::string simple = Into([&](char* out) { LFile::MakeRelativeFolder(out, base.c_str(), target.c_str()); });
    Require(fits || relative.empty());
    const auto back = [&](const std::string& path) {
        return Into([&](char* out) { LFile::MakeAbsoluteFilePath(out, base.c_str(), path.c_str(), ""); });
    };
    const std::string absolute = back(relative);
    const std::string absoluteSimple = back(simple);
    if (!IsPlain(base) || !IsPlain(target) || base.size() + target.size() > 120) return;
    Require(absolute == target);
    if (!(base + "/").starts_with(target + "/")) Require(absoluteSimple == target);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(std::string(data, data + size).c_str());
    const std::string base = input.substr(0, input.find('\n'));
    const std::string target = base.size() < input.size() ? input.substr(base.size() + 1) : "";
    CheckPieces(base);
    CheckNames(base);
    CheckWayBack(base, target);
    (void)Into([&](char* out) { LFile::_ApplyNewFileExtension(out, base.c_str(), target.c_str()); });
    (void)Into([&](char* out) { LFile::_MakeFilePath(out, base.c_str(), target.c_str(), base.c_str()); });
    return 0;
}
