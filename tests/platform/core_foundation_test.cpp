// Strings in their encodings, URLs, bundles and the information dictionary of strangers.
#include <CoreServices/CoreServices.h>
#include <fcntl.h>

#include <cstring>

#include "foundation_support.h"
#include "platform/linux/info_plist.h"

namespace {

CFStringRef make(const std::string& bytes, CFStringEncoding encoding = kCFStringEncodingUTF8) {
    return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                   static_cast<CFIndex>(bytes.size()), encoding, 0);
}

// The text in `encoding`, or "(none)".
std::string read(CFStringRef string, CFStringEncoding encoding) {
    char buffer[64];
    if (!CFStringGetCString(string, buffer, sizeof(buffer), encoding)) return "(none)";
    return encoding == kCFStringEncodingUnicode
               ? std::string(buffer, static_cast<size_t>(CFStringGetLength(string)) * 2)
               : std::string(buffer);
}

CFURLRef urlOf(const std::string& where) {
    const CFStringRef path = make(where);
    const CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, 1);
    CFRelease(path);
    return url;
}

CFBundleRef bundleAt(const std::string& where) {
    const CFURLRef url = urlOf(where);
    const CFBundleRef bundle = url == nullptr ? nullptr : CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}

}  // namespace

TEST(Strings, Encodings) {
    const struct {
        const char* name;
        CFStringEncoding from;
        std::string bytes;
        CFIndex length;  // in units; -1: refused
        std::string utf8, isoLatin1, windowsLatin1;
    } table[] = {
        {"empty", kCFStringEncodingUTF8, "", 0, "", "", ""},
        {"ascii", kCFStringEncodingUTF8, "abc", 3, "abc", "abc", "abc"},
        {"latin", kCFStringEncodingUTF8, "\xC3\xA9", 1, "\xC3\xA9", "\xE9", "\xE9"},
        {"euro", kCFStringEncodingUTF8, "\xE2\x82\xAC", 1, "\xE2\x82\xAC", "(none)", "\x80"},
        {"control", kCFStringEncodingUTF8, "\xC2\x80", 1, "\xC2\x80", "\x80", "(none)"},
        {"pair", kCFStringEncodingUTF8, "\xF0\x9F\x98\x80", 2, "\xF0\x9F\x98\x80", "(none)", "(none)"},
        {"last", kCFStringEncodingUTF8, "\xF4\x8F\xBF\xBF", 2, "\xF4\x8F\xBF\xBF", "(none)", "(none)"},
        {"past the last", kCFStringEncodingUTF8, "\xF4\x90\x80\x80", -1, "", "", ""},
        {"lone tail", kCFStringEncodingUTF8, "a\x80", -1, "", "", ""},
        {"cut off", kCFStringEncodingUTF8, "a\xE2\x82", -1, "", "", ""},
        {"overlong 2", kCFStringEncodingUTF8, "\xC1\xBF", -1, "", "", ""},
        {"overlong 3", kCFStringEncodingUTF8, "\xE0\x9F\xBF", -1, "", "", ""},
        {"overlong 4", kCFStringEncodingUTF8, "\xF0\x8F\xBF\xBF", -1, "", "", ""},
        {"surrogate", kCFStringEncodingUTF8, "\xED\xA0\x80", -1, "", "", ""},
        {"five bytes", kCFStringEncodingUTF8, "\xF8\x88\x80\x80\x80", -1, "", "", ""},
        {"utf-16", kCFStringEncodingUnicode, std::string("a\0\xE9\0", 4), 2, "a\xC3\xA9", "a\xE9", "a\xE9"},
        {"odd utf-16", kCFStringEncodingUnicode, "abc", -1, "", "", ""},
        {"lone surrogate", kCFStringEncodingUnicode, std::string("\0\xD8", 2), 1, "(none)", "(none)", "(none)"},
        {"swapped pair", kCFStringEncodingUnicode, std::string("\0\xDC\0\xD8", 4), 2, "(none)", "(none)", "(none)"},
        {"iso", kCFStringEncodingISOLatin1, "\x80\xFF", 2, "\xC2\x80\xC3\xBF", "\x80\xFF", "(none)"},
        {"windows", kCFStringEncodingWindowsLatin1, "\x80\x9F", 2, "\xE2\x82\xAC\xC5\xB8", "(none)", "\x80\x9F"},
        {"windows' gaps", kCFStringEncodingWindowsLatin1, "\x81\x9D", 2, "\xC2\x81\xC2\x9D", "\x81\x9D", "\x81\x9D"},
        {"unknown", 0x0600, "a", -1, "", "", ""},
    };
    for (const auto& row : table) {
        const CFStringRef string = make(row.bytes, row.from);
        ASSERT_EQ(string != nullptr, row.length >= 0) << row.name;
        if (string == nullptr) continue;
        EXPECT_EQ(CFStringGetLength(string), row.length) << row.name;
        EXPECT_EQ(read(string, kCFStringEncodingUTF8), row.utf8) << row.name;
        EXPECT_EQ(read(string, kCFStringEncodingISOLatin1), row.isoLatin1) << row.name;
        EXPECT_EQ(read(string, kCFStringEncodingWindowsLatin1), row.windowsLatin1) << row.name;
        const CFStringRef again = make(read(string, kCFStringEncodingUnicode), kCFStringEncodingUnicode);
        EXPECT_EQ(read(again, kCFStringEncodingUTF8), row.utf8) << row.name;
        CFRelease(again);
        CFRelease(string);
    }
}

TEST(Strings, BufferSizesCountTheTerminator) {
    const CFStringRef string = make("a\xC3\xA9");
    const struct {
        CFStringEncoding encoding;
        CFIndex enough;
    } table[] = {{kCFStringEncodingUTF8, 4}, {kCFStringEncodingISOLatin1, 3}, {kCFStringEncodingUnicode, 6}};
    for (const auto& [encoding, enough] : table) {
        std::vector<char> buffer(static_cast<size_t>(enough), 'x');  // the sanitizer watches its end
        EXPECT_TRUE(CFStringGetCString(string, buffer.data(), enough, encoding));
        EXPECT_FALSE(CFStringGetCString(string, buffer.data(), enough - 1, encoding));
        EXPECT_FALSE(CFStringGetCString(string, buffer.data(), 0, encoding));
    }
    UniChar units[2] = {};
    CFStringGetCharacters(string, CFRangeMake(1, 1), units);
    EXPECT_EQ(units[0], 0xE9);
    CFRelease(string);
    EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8), nullptr);
    EXPECT_EQ(CFStringCreateWithCharacters(kCFAllocatorDefault, units, -1), nullptr);
}

TEST(InformationDictionary, WhatStrangersWrite) {
    const auto xml = [](const std::string& body) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Some//DTD PLIST 1.0//EN\" "
               "\"http://example.com/p.dtd\">\n<plist version=\"1.0\">" +
               body + "</plist>";
    };
    const auto pair = [](const std::string& value) { return "<key>CFBundleVersion</key>" + value; };
    const auto repeated = [](const std::string& text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) all += text;
        return all;
    };
    const std::string good = pair("<string>2.13</string>");
    // {"CFBundleVersion": "2.13"}, and lists made by hand: one that contains itself, one of shared lists.
    const std::string binary = std::string("bplist00\xD1\x01\x02\x5F\x10\x0F", 14) + "CFBundleVersion" + "\x54" +
                               "2.13" + std::string("\x08\x0B\x1D", 3) + std::string(6, '\0') + "\x01\x01" +
                               std::string("\0\0\0\0\0\0\0\3\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x22", 24);
    std::string itself = std::string("bplist00\xA1\x00\x08", 11) + std::string(6, '\0') + "\x01\x01" +
                         std::string("\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0A", 24);
    std::string shared = "bplist00";
    std::string offsets;
    for (char level = 0; level < 40; ++level) {
        offsets += static_cast<char>(shared.size());
        shared += {'\xA2', static_cast<char>(level + 1), static_cast<char>(level + 1)};
    }
    offsets += static_cast<char>(shared.size());
    shared += '\x09';
    const auto table = static_cast<char>(shared.size());
    shared += offsets + std::string(6, '\0') + "\x01\x01" + std::string("\0\0\0\0\0\0\0\x29", 8) +
              std::string(15, '\0') + std::string(1, table);

    const struct {
        const char* name;
        std::string content;
        const char* version;  // null: none
    } rows[] = {
        {"xml", xml("<dict>" + good + "</dict>"), "2.13"},
        {"xml behind a mark", "\xEF\xBB\xBF" + xml("<dict>" + good + "</dict>"), "2.13"},
        {"binary", binary, "2.13"},
        {"a number", xml("<dict>" + pair("<integer>2</integer>") + "</dict>"), nullptr},
        {"a list", xml("<dict>" + pair("<array><string>2.13</string></array>") + "</dict>"), nullptr},
        {"top level list", xml("<array><string>2.13</string></array>"), nullptr},
        {"nested within reason",
         xml("<dict>" + good + "<key>k</key>" + repeated("<array>", 30) + repeated("</array>", 30) + "</dict>"),
         "2.13"},
        {"nested 100,000 deep", xml(repeated("<array>", 100000) + repeated("</array>", 100000)), nullptr},
        {"nested behind comments",
         xml(repeated("<!--><array>-->" + repeated("<array>", 20) + "<!--" + repeated("</array>", 20) + "-->", 900)),
         nullptr},
        {"entities", "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><dict>" + good + "</dict></plist>", nullptr},
        {"cut off", xml("<dict>" + good + "</dict>").substr(0, 150), nullptr},
        {"binary that contains itself", itself, nullptr},
        {"binary of shared lists", shared, nullptr},
        {"binary cut off", binary.substr(0, 30), nullptr},
        {"empty", "", nullptr},
        {"a million openings", repeated("<!", 500000), nullptr},
        {"just fits", xml("<dict>" + good + "</dict>") + std::string((1 << 20) - 400, '\n'), "2.13"},
        {"too large", xml("<dict>" + good + "</dict>") + std::string(1 << 20, '\n'), nullptr},
    };
    const TemporaryFolder folder;
    for (const auto& row : rows) {
        for (const char* place : {"Contents/Info.plist", "Info.plist"}) {
            std::filesystem::remove_all(folder / "X.app");
            writeFile(folder / ("X.app/" + std::string(place)), row.content);
            const CFBundleRef bundle = bundleAt(folder / "X.app");
            ASSERT_NE(bundle, nullptr);
            const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, kCFBundleVersionKey);
            ASSERT_EQ(value != nullptr, row.version != nullptr) << row.name << ' ' << place;
            if (value != nullptr) {
                EXPECT_EQ(read(static_cast<CFStringRef>(value), kCFStringEncodingUTF8), row.version) << row.name;
            }
            CFRelease(bundle);
        }
    }
}

TEST(InformationDictionary, WhatIsNoFile) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "Bare.app");
    const CFBundleRef bundle = bundleAt(folder / "Bare.app");
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(CFBundleGetValueForInfoDictionaryKey(bundle, kCFBundleVersionKey), nullptr);
    CFRelease(bundle);
    writeFile(folder / "file", "");
    EXPECT_EQ(bundleAt(folder / "file"), nullptr);
    EXPECT_EQ(bundleAt(folder / "missing"), nullptr);
    EXPECT_EQ(bundleAt(""), nullptr);
}

TEST(System, VersionAndFileReferences) {
    int32_t value = 7;
    EXPECT_EQ(Gestalt(0x73797333, &value), gestaltUndefSelectorErr);
    platform_testing::set_system_version(-1, 6);
    EXPECT_EQ(Gestalt(gestaltSystemVersionMajor, &value), gestaltUndefSelectorErr);
    EXPECT_EQ(value, 7) << "what cannot be told leaves the answer as it was";
    EXPECT_EQ(Gestalt(gestaltSystemVersionMinor, &value), noErr);
    EXPECT_EQ(value, 6);
    platform_testing::set_system_version(10, 15);

    const TemporaryFolder folder;
    writeFile(folder / "file", "");
    std::filesystem::create_symlink(folder / "file", folder / "link");
    std::filesystem::create_symlink(folder / "missing", folder / "dangling");
    for (const char* name : {"file", "link", "dangling", "missing"}) {
        const CFURLRef url = urlOf(folder / name);
        FSRef reference{};
        EXPECT_EQ(CFURLGetFSRef(url, &reference), std::strcmp(name, "missing") != 0) << name;
        const bool follows = std::strcmp(name, "file") == 0 || std::strcmp(name, "link") == 0;
        EXPECT_EQ(NSFileManager::defaultManager().fileExistsAtPath(folder / name), follows) << name;
        CFRelease(url);
    }
}
