// A temporary folder that stands for the user's home, runtime and data folders while it lives.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/TemporaryFolder.h"

class TempHome {
  public:
    TempHome() {
        for (const auto& [variable, folder] :
             {std::pair{"HOME", "home"}, std::pair{"XDG_RUNTIME_DIR", "run"}, std::pair{"XDG_DATA_HOME", "data"}}) {
            std::filesystem::create_directories(folder_ / folder);
            std::filesystem::permissions(folder_ / folder, std::filesystem::perms::owner_all);
            setenv(variable, (folder_ / folder).c_str(), 1);
        }
    }

  private:
    TemporaryFolder folder_;

  public:
    const std::string path = folder_.path();
};
