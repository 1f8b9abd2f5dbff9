// A temporary folder that stands for the user's home, runtime and data folders while it lives.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

class TempHome {
  public:
    TempHome() {
        std::string name = (std::filesystem::temp_directory_path() / "schedulehelper.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        path = std::filesystem::canonical(name).string();
        for (const auto& [variable, folder] :
             {std::pair{"HOME", ""}, std::pair{"XDG_RUNTIME_DIR", "/run"}, std::pair{"XDG_DATA_HOME", "/data"}}) {
            std::filesystem::create_directories(path + folder);
            std::filesystem::permissions(path + folder, std::filesystem::perms::owner_all);
            setenv(variable, (path + folder).c_str(), 1);
        }
    }
    ~TempHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempHome(const TempHome&) = delete;
    TempHome& operator=(const TempHome&) = delete;

    std::string path;
};
