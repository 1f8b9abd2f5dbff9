#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "base/LFile.h"
#include "charsets_reference.h"
#include "guarded.h"
#include "tests/support/TemporaryFolder.h"

namespace {

/// What an operation writes into a buffer of exactly 260 bytes that was not terminated before.
template <typename Operation, typename... Arguments>
std::string into(Operation operation, Arguments... arguments) {
    Guarded<char> out(260);
    operation(out.data(), arguments...);
    return out.data();
}

TEST(Paths, TakenApart) {
    const struct {
        const char *path, *folder, *file, *name, *extension, *base;
    } rows[] = {
        {"", "", "", "", "", ""},
        {"/", "/", "", "", "", "/"},
        {"file", "", "file", "file", "", "file"},
        {"/file", "/", "file", "file", "", "/file"},
        {"a/b/", "a/b", "", "", "", "a/b"},
        {"a/", "a", "", "", "", "a"},
        {"a/b/c.txt", "a/b", "c.txt", "c", ".txt", "a/b"},
        {"x/a.tar.gz", "x", "a.tar.gz", "a.tar", ".gz", "x/a.tar.gz"},
        {".profile", "", ".profile", ".profile", ".profile", ".profile"},
        {"a.b/c", "a.b", "c", "c", "", "a.b"},
        {"/Applications/Orvin.app", "/Applications", "Orvin.app", "Orvin", ".app", "/Applications"},
        {"C:\\dir\\x.txt", "C:\\dir", "x.txt", "x", ".txt", "C:"},
        {"\\x", "", "x", "x", "", "\\x"},
        {"//server/share", "//server", "share", "share", "", "//server"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(into(LFile::_GetFolderFromPath, row.path), row.folder);
        EXPECT_EQ(into(LFile::_GetFileFromPath, row.path), row.file);
        EXPECT_EQ(into(LFile::_GetFileNameFromPath, row.path), row.name);
        EXPECT_EQ(into(LFile::_GetFileExtensionFromPath, row.path), row.extension);
        EXPECT_EQ(into(LFile::_GetBaseFolderFromPath, row.path), row.base);
    }
}

TEST(Paths, ExactAtTheEndOfTheBuffer) {
    for (const size_t length : {257u, 258u, 259u, 260u, 261u, 300u}) {
        SCOPED_TRACE(length);
        const std::string x(length, 'x');
        const std::string cut = x.substr(0, 259);
        const std::string tail = "." + x.substr(1);
        EXPECT_EQ(into(LFile::_GetFileFromPath, ("a/" + x + "/b").c_str()), length >= 259 ? cut : "b");
        EXPECT_EQ(into(LFile::_GetFolderFromPath, (x + "/y").c_str()), length < 260 ? x : "");
        EXPECT_EQ(into(LFile::_GetFileExtensionFromPath, ("a" + tail).c_str()), tail.substr(0, 259));
        EXPECT_EQ(into(LFile::_GetBaseFolderFromPath, (x + "/y").c_str()), cut);
        EXPECT_EQ(into(LFile::_ApplyNewFileExtension, x.c_str(), ".wav"), (cut + ".wav").substr(0, 259));
        EXPECT_EQ(into(LFile::_MakeFilePath, "d", x.c_str(), ".e"), ("d/" + x + ".e").substr(0, 259));
        char joined[260];
        EXPECT_EQ(LFile::_MakeFilePath(joined, "d", x.c_str(), ".e"), static_cast<int>(length + 4));
        EXPECT_EQ(into(LFile::_MakeFilePath, x.c_str(), "n", ""), (x.substr(0, 258) + "/n").substr(0, 259));
        EXPECT_EQ(into([&](char* out) { LFile::PreprocessName((":" + x).c_str(), out); }), cut);
        const std::string quoted = x.substr(0, length - 1) + "\"";
        EXPECT_EQ(into([&](char* out) { LFile::EscapeFilePath(quoted.c_str(), out); }),
                  length < 259 ? x.substr(0, length - 1) + "\\\"" : x.substr(0, std::min<size_t>(length - 1, 259)));
        EXPECT_EQ(into(LFile::GetHumanReadableDriveFromPath, x.c_str()), (x + ":\\").substr(0, 259));
    }
}

TEST(Paths, PutTogether) {
    const struct {
        const char *path, *extension, *expected;
    } extensions[] = {
        {"a/b.txt", ".wav", "a/b.wav"},   {"a.b/c", ".wav", "a.b/c.wav"}, {".profile", ".txt", ".profile.txt"},
        {"a/.profile", ".txt", "a/.txt"}, {"", ".txt", ".txt"},           {"a.b.c", "", "a.b"}};
    for (const auto& row : extensions) {
        EXPECT_EQ(into(LFile::_ApplyNewFileExtension, row.path, row.extension), row.expected);
    }
    const struct {
        const char *folder, *name, *extension, *expected;
    } joined[] = {
        {"dir", "a", ".b", "dir/a.b"}, {"dir/", "a", "", "dir/a"}, {"d\\", "a", "", "d\\a"}, {"", "a", ".b", "a.b"}};
    for (const auto& row : joined) {
        Guarded<char> out(260);
        std::strcpy(out.data(), row.folder);
        const int length = LFile::_MakeFilePath(out.data(), out.data(), row.name, row.extension);
        EXPECT_STREQ(out.data(), row.expected);
        EXPECT_EQ(length, static_cast<int>(std::strlen(row.expected)));
    }
}

TEST(Paths, Absolute) {
    const struct {
        const char *base, *relative, *expected;
    } rows[] = {
        {"/Users/me/dir", "../x", "/Users/me/x"},
        {"/Users/me/dir/", "../../x", "/Users/x"},
        {"/Users/me/dir/", "..\\.\\x", "/Users/me/x"},
        {"/a/bc", "./d", "/a/bc/d"},
        {"/a/bc", "d/../e", "/a/bc/d/../e"},
        {"/a/bc", ".x", "/a/bc/.x"},
        {"/a/bc", "..", "/a/bc/.."},
        {"/a/bc", "C:x", "C:x"},
        {"/a/bc", "/x", "/x"},
        {"/a/bc", ".:/x", ".:/x"},
        {"/a/bc", "d/x:y", "/a/bc/d/x:y"},
        {"/a/b", "../x", "/a/x"},  // single characters and the root
        {"/a/b/", "../../../x", "/x"},
        {"/ab", "../x", "/x"},
        {"/", "../x", "/x"},
        {"ab", "../x", "ab/x"},
        {"", "../x", "x"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(into(LFile::MakeAbsoluteFilePath, row.base, row.relative, ".e"), std::string(row.expected) + ".e")
            << row.base << ' ' << row.relative;
    }
}

TEST(Paths, Relative) {
    const struct {
        const char *base, *target, *careful, *simple;
    } rows[] = {
        {"/a/b/c", "/a/x/y", "../../x/y", "../../x/y"},
        {"/a/b", "/a/bc", "../bc", "../bc"},
        {"/a/b", "/a/b/c", "c", "c"},
        {"/a/b/", "/a/b/c", "c", "c"},
        {"/a/b", "/a/b", "../b", "../"},
        {"/a/b/", "/a/b", "../b", "../"},
        {"/a/bc", "/a/bd/x", "../bd/x", "../bd/x"},
        {"/a/bc", "/a/b/x", "../b/x", "../b/x"},
        {"/a/b", "/a/b//c", "/c", "c"},
        {"a", "a/b", "b", "b"},
        {"abc", "abd", "abd", "../abd"},
        {"a\\b\\c", "a\\x", "..\\..\\x", "../a\\x"},
        {"x", "", "", "../"},
        {"", "/x", "x", "x"},
    };
    bool fits = false;
    const auto relative = [&fits](const char* base, const std::string& target) {
        return into([&](char* out) { fits = LFile::GetRelativePathFromAbsolutePath(out, base, target.c_str()); });
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.base) + " " + row.target);
        EXPECT_EQ(relative(row.base, row.target), row.careful);
        EXPECT_TRUE(fits);
        EXPECT_EQ(into(LFile::MakeRelativeFilePath, row.base, row.target), row.simple);
    }
    for (const size_t length : {253u, 254u, 255u}) {  // with "../../" 259, 260 and 261
        EXPECT_EQ(relative("/b/c", "/" + std::string(length, 't')),
                  length < 255 ? "../../" + std::string(253, 't') : "");
        EXPECT_EQ(fits, length < 255);
    }
    for (const size_t length : {257u, 258u, 259u}) {  // the longest has no place for a '/' behind it
        const std::string base = "/" + std::string(length - 1, 'b');
        EXPECT_EQ(into(LFile::MakeRelativeFolder, base.c_str(), (base + "/c").c_str()), "c");
        EXPECT_EQ(into(LFile::MakeRelativeFolder, base.c_str(), base.c_str()), length < 259 ? "../" : "");
    }
    const std::string deep(255, '/');
    EXPECT_EQ(into(LFile::MakeRelativeFolder, ("a" + deep).c_str(), "b").size(), 259u);
}

TEST(Paths, NamesThatPeopleType) {
    const struct {
        const char *in, *name, *path;
        bool valid, pathValid;
    } rows[] = {{"", "", "", false, false},
                {"a:b", "ab", "ab", false, true},
                {"a/b\\c", "abc", "a/b\\c", false, true},
                {"   ", "   ", "   ", true, false},
                {"\x01\x1F\"*<>?|:", "", "", false, false},
                {"\u00E9\x7F", "\u00E9\x7F", "\u00E9\x7F", true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.in);
        EXPECT_EQ(LFile::IsFileValid(row.in), row.valid);
        EXPECT_EQ(into([&](char* out) { EXPECT_EQ(LFile::PreprocessName(row.in, out), *row.name != 0); }), row.name);
        EXPECT_EQ(into([&](char* out) { EXPECT_EQ(LFile::PreprocessPath(row.in, out), row.pathValid); }), row.path);
    }
    EXPECT_EQ(into([](char* out) { LFile::EscapeFilePath("a\"b`c\\", out); }), "a\\\"b\\`c\\");
    const char* const list[] = {".mov", ".MP4", nullptr};
    EXPECT_TRUE(LIsFileExtensionInList(list, ".mp4"));
    EXPECT_FALSE(LIsFileExtensionInList(list, ".mp"));
    EXPECT_FALSE(LIsFileExtensionInList(list + 2, ".mp4"));
    int letters = 0;
    for (int c = -128; c < 128; ++c) letters += LFileIsLetterOrNumber(static_cast<char>(c)) ? 1 : 0;
    EXPECT_EQ(letters, 62);
}

class PathsOnDisk : public testing::Test {
  protected:
    std::string unique(const std::string& folder, const std::string& name) {
        return into(LFile::MakeUniqueOrderedFilePath, folder.c_str(), name.c_str(), ".mov");
    }

    const TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
};

TEST_F(PathsOnDisk, UniquePaths) {
    const std::string take = folder_ + "/take";
    EXPECT_EQ(unique(folder_, "take"), take + ".mov");
    std::ofstream(take + ".mov").flush();
    std::ofstream(take + "_0.mov").flush();
    EXPECT_EQ(unique(folder_, "take"), take + "_1.mov");
    std::filesystem::create_symlink("nowhere", take + "_1.mov");
    EXPECT_EQ(unique(folder_, "take"), take + "_2.mov");
    EXPECT_EQ(unique(folder_, "\xFF"), folder_ + "/\xFF.mov");  // no text that a URL could be made of: free

    // The number lies behind the cut: no candidate can ever differ.
    std::string deep = folder_;
    while (deep.size() < 258) deep += "/" + std::string(std::min<size_t>(200, 257 - deep.size()), 'd');
    std::filesystem::create_directories(deep);
    EXPECT_EQ(unique(deep, "take"), "");
}

TEST_F(PathsOnDisk, FoldersAndMounts) {
    char before[260];
    ASSERT_EQ(LFile::GetCurrentDirectory(before), before);
    EXPECT_EQ(LFile::SetCurrentDirectory(folder_.c_str()), 0);
    EXPECT_TRUE(std::filesystem::equivalent(into(LFile::GetCurrentDirectory), folder_));
    EXPECT_EQ(LFile::SetCurrentDirectory("nothing of that name"), -1);
    EXPECT_EQ(LFile::SetCurrentDirectory(before), 0);

    const std::pair<const char*, const char*> rows[] = {
        {"/", "/"},    {"/proc/self/status", "/proc"},     {"/nothing of that name", "/"},
        {"C", "C:\\"}, {"Disk1 of that name", "Disk1:\\"}, {"-x", ""},
        {"", ""}};
    for (const auto& [path, expected] : rows) {
        EXPECT_EQ(into(LFile::GetHumanReadableDriveFromPath, path), expected) << path;
    }
}

// Every pattern and name of a small alphabet, in which the '*' of a name is the hard case.
TEST(Wildcard, AgreesWithTheTableOnEveryShortPair) {
    std::vector<std::string> patterns{""}, names{""};
    const auto extend = [](std::vector<std::string>& texts, size_t longest, const std::string& alphabet) {
        for (size_t i = 0; i < texts.size(); ++i) {
            if (texts[i].size() == longest) continue;
            for (const char c : alphabet) texts.push_back(texts[i] + c);
        }
    };
    extend(patterns, 5, "ab*?");
    extend(names, 5, "ab*");
    for (const std::string& pattern : patterns) {
        for (const std::string& name : names) {
            ASSERT_EQ(LFile::IsMatch(pattern.c_str(), name.c_str()), reference::isMatch(pattern, name))
                << pattern << " and " << name;
        }
    }
}

TEST(Wildcard, ManyStarsOverALongName) {
    const std::string name(20000, 'a');
    std::string pattern;
    for (int i = 0; i < 1000; ++i) pattern += "*a?";
    EXPECT_TRUE(LFile::IsMatch(pattern.c_str(), name.c_str()));
    EXPECT_FALSE(LFile::IsMatch((pattern + "b").c_str(), name.c_str()));
    EXPECT_FALSE(LFile::IsMatch("*.txt", "a.TXT"));
}

}  // namespace
