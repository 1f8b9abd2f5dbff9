// A folder that goes with its test, with everything in it. Its name has what a URI or a shell would take for its own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "schedule helper%3F#-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        path_ = std::filesystem::canonical(name).string();
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + '/' + name; }
    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    std::string path_;
};
