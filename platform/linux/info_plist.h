// The information dictionary of a bundle: the texts at the top level of its Info.plist.
//
// The file is somebody else's: a FIFO, a device, something huge, or a text made to exhaust whoever parses it. It is
// opened without blocking, must be a regular file of at most 1 MiB, and is measured by info_plist_guard.h before the
// property-list library sees it. Whatever is refused gives an empty dictionary.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class InfoPlist {
  public:
    /// Reads BUNDLE/Contents/Info.plist, or BUNDLE/Info.plist when the first is not there. May throw std::bad_alloc.
    static InfoPlist ofBundle(const std::string& bundlePath);

    /// Parses XML or binary; for what ofBundle read, and for fuzzing.
    static InfoPlist parse(const std::string& content);

    /// Null when there is no such key or its value is no text (a number under CFBundleVersion counts as none).
    [[nodiscard]] const std::string* text(std::string_view key) const;

    [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& texts() const { return texts_; }

  private:
    std::vector<std::pair<std::string, std::string>> texts_;
};
