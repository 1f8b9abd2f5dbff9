// LFile: path names as plain text, and a wildcard matcher.
//
// A path is a zero-terminated `char` string (UTF-8). Slash and backslash both separate when a path is taken apart; '/'
// is the only separator that is inserted. The file of a path is the text behind its last separator, its folder the
// text before it, the extension the text from the last '.' of the file on (the '.' included), the name the file without
// its extension.
//
// Every `out` holds 260 bytes: 259 and a terminator. Longer results are cut there, byte by byte, and not reported
// (GetRelativePathFromAbsolutePath is the exception). Nothing but MakeUniqueOrderedFilePath allocates, no state is
// kept, and all operations may run on any number of threads; only where it is said do they look at the file system.
// Arguments are never null. An output may share a buffer with an input only where it is said.
#pragma once

class LFile {
  public:
    // ---- Taking apart. `out` may be `path` itself.

    /// The file: the text behind the last separator; "" for "a/b/". A component that reaches 259 bytes ends the
    /// search: it is the result, and what follows it is not looked at.
    static void _GetFileFromPath(char* out, const char* path);
    /// The file without its extension. A '.' in first place begins no extension: ".profile" stays as it is.
    static void _GetFileNameFromPath(char* out, const char* path);
    /// The folder, from the first 260 bytes of the path: "a/b" for "a/b/c.txt" and for "a/b/", "/" for "/file", ""
    /// without a separator.
    static void _GetFolderFromPath(char* out, const char* path);
    /// The extension, ".gz" for "x/a.tar.gz", "" when there is none. Here ".profile" is all extension.
    static void _GetFileExtensionFromPath(char* out, const char* path);
    /// The first component: "/Volumes" for "/Volumes/Disk/x", "C:" for "C:\dir", "//server" for "//server/share".
    /// Separators in the first two places do not end it ("a/b" for "a/b/c"). Returns `out`.
    static char* _GetBaseFolderFromPath(char* out, const char* path);

    // ---- Putting together

    /// `path` with its extension replaced by `extension`, which brings its own '.', or added when there is none. A '.'
    /// in first place of the path begins no extension. `out` may be `path`.
    static void _ApplyNewFileExtension(char* out, const char* path, const char* extension);
    /// At most 258 bytes of `folder`, a '/' unless that is empty or ends with a separator, name and extension.
    /// Returns the length that this text has uncut, without the terminator. `folder` may be `out`.
    static int _MakeFilePath(char* out, const char* folder, const char* name, const char* extension);
    /// The first of "take.mov", "take_0.mov", "take_1.mov" and so on in `folder` that does not exist (looks at the file
    /// system). A link counts as existing even when what it names does not, so nobody writes through it by mistake;
    /// what cannot be tested counts as free. When the number falls behind the cut at 259 bytes, so that no further
    /// candidate can differ, `out` is "": never the path of something that exists.
    static void MakeUniqueOrderedFilePath(char* out, const char* folder, const char* name, const char* extension);

    // ---- Absolute and relative

    /// `relative` seen from the folder `base`, leading "./" and "../" resolved. One that begins with a separator, or
    /// has a ':' before its first one, ignores `base`. Going up from a folder at the root gives the root ("/ab" and
    /// "../x" give "/x"), also when its name is a single character; where `base` has nothing to go up from it stays as
    /// it is.
    static void MakeAbsoluteFilePath(char* out, const char* base, const char* relative, const char* extension);
    /// `target` seen from the folder `base`: "../../x/y" for "/a/b/c" and "/a/x/y"; `target` unchanged when the two
    /// share nothing; an empty `base` counts as the root. False, with `out` "", when the result is too long.
    static bool GetRelativePathFromAbsolutePath(char* out, const char* base, const char* target);
    /// `target` seen from the folder `base` by the simpler rule: one "../" for each '/' left in `base` behind the
    /// common beginning, then the rest of `target`. A common beginning that ends inside a component ends at the '/'
    /// before it: "../bd/x" for "/a/bc" and "/a/bd/x". An empty `base` counts as "/". Always true.
    static bool MakeRelativeFolder(char* out, const char* base, const char* target);
    static bool MakeRelativeFilePath(char* out, const char* base, const char* target);

    // ---- Names that people type

    /// Usable as one file name: not empty, no byte below 32, none of : * ? " < > | \ and /.
    static bool IsFileValid(const char* name);
    /// `in` without the characters that IsFileValid refuses; true if `out` is not empty. `out` may be `in`.
    static bool PreprocessName(const char* in, char* out);
    /// The same, but slash and backslash stay; true if `out` holds something besides spaces.
    static bool PreprocessPath(const char* in, char* out);
    /// `in` with a backslash before each double quote and backquote. The text ends before a quote that no longer fits
    /// together with its backslash, so no lone backslash is ever left at the end. Returns `out`.
    static char* EscapeFilePath(const char* in, char* out);

    // ---- The file system

    /// The directory on which the file system of `path` is mounted. For a path that does not exist: its leading letters
    /// and digits with ":\" behind them, "/" when it begins so, "" for any other.
    static void GetHumanReadableDriveFromPath(char* out, const char* path);
    /// The process's working folder; null, and `out` unspecified, when it does not fit or cannot be told.
    static char* GetCurrentDirectory(char* out);
    /// Changes it, for the whole process; 0, or -1 with errno set.
    static int SetCurrentDirectory(const char* path);

    // ---- Wildcards

    /// Whether `name` matches: '?' is any one character, '*' any run, the empty one included, all else itself, case
    /// counting. A '*' in the pattern that meets a '*' in the name matches just that one. Characters are bytes, of any
    /// number; the time is at most pattern times name. Made for `char`.
    template <typename T>
    static bool IsMatch(const T* pattern, const T* name);
};

extern template bool LFile::IsMatch<char>(const char* pattern, const char* name);

/// Whether `extension` is one of `list`, which ends with a null pointer, ignoring case as the locale in force has it. A
/// null list is empty.
bool LIsFileExtensionInList(const char* const* list, const char* extension);

/// ASCII letter or digit, whatever the locale.
bool LFileIsLetterOrNumber(char c);
