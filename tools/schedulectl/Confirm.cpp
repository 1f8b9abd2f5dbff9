#include "tools/schedulectl/Confirm.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>

#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/Health.h"
#include "tools/schedulectl/Json.h"
#include "tools/schedulectl/Text.h"

namespace schedulectl {
namespace {

[[noreturn]] void RefuseExport(const std::string& file, std::string why) {
    throw Failure{ExitCode::usage, Printable(file) + " is no export that I can read", std::move(why),
                  "schedulectl export > FILE writes one."};
}

std::string ReadWhole(const std::string& file) {
    if (file == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
    std::ifstream stream(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    std::error_code ignored;
    if (!stream.is_open() || std::filesystem::is_directory(file, ignored)) RefuseExport(file, "It cannot be opened.");
    return text;
}

Schedule ReadSchedule(const Json& json) {
    Schedule schedule;
    schedule.skedName = json.at("name").get<std::string>();
    schedule.bundleId = json.at("bundleId").get<std::string>();
    schedule.appPath = json.at("app").get<std::string>();
    const auto asked = json.at("asked").at("epoch").get<Moment>();
    using Limits = std::numeric_limits<long>;
    const bool fits = asked >= Limits::min() + earlySeconds && asked <= Limits::max();
    schedule.start.seconds = fits ? static_cast<long>(asked - earlySeconds) : 0;
    schedule.daily = json.value("daily", false);
    schedule.weekly = json.value("weekly", false);
    schedule.weekDays.mask = static_cast<unsigned char>(json.value("weekdayMask", 0U) & 0x7FU);
    return schedule;
}

}  // namespace

World SendAndLook(const World& world, const std::vector<Request>& requests) {
    Service service;
    const Service::Answer first = service.Test();
    if (first == Service::Answer::silence) {
        Failure silence = Silence();
        silence.what += ", and nothing was sent";
        throw Failure(silence);
    }
    if (first != Service::Answer::yes) ThrowNoService(world);
    constexpr size_t batch = 64;  // few enough that neither side has to hold many at once
    for (size_t sent = 0; sent < requests.size();) {
        const size_t end = std::min(sent + batch, requests.size());
        while (sent < end) service.Send(requests[sent++]);
        const Service::Answer answer = service.Test(writeTime);
        if (answer == Service::Answer::yes) continue;
        const bool gone = answer == Service::Answer::gone;
        throw Failure{ExitCode::unconfirmed, "It was sent, but nobody confirmed it",
                      gone ? "The helper ended before it answered." : "The helper did not answer in time.",
                      "\"schedulectl list\" shows what is stored, \"schedulectl doctor\" what is wrong."};
    }
    World after = Observe();
    RequireStore(after);
    return after;
}

void ThrowNotStored(const std::string& what) {
    throw Failure{ExitCode::unconfirmed, what + " was sent but not stored",
                  "The helper answered, but its store shows nothing of it.",
                  "\"schedulectl doctor\" looks whether the store can be written."};
}

bool AskToClear(const std::string& what, const std::string& list, bool json) {
    if (json || isatty(STDIN_FILENO) != 1)
        throw Failure{ExitCode::usage, "Nobody can be asked whether to delete " + what,
                      json ? "With --json there is no conversation." : "Standard input is no terminal.",
                      "Say so with -y."};
    FILE* shown = isatty(STDOUT_FILENO) == 1 ? stdout : stderr;  // where the one who answers can read it
    (void)fprintf(shown, "%s\nDelete %s? [y/N] ", list.c_str(), what.c_str());
    (void)fflush(shown);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || Lower(answer) == "yes";
}

std::string DefaultExportPath(Moment now) {
    const char* state = getenv("XDG_STATE_HOME");
    const char* home = getenv("HOME");
    std::string folder =
        state != nullptr && state[0] == '/' ? state : std::string(home != nullptr ? home : ".") + "/.local/state";
    folder += "/schedulectl";
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    (void)chmod(folder.c_str(), 0700);
    const Civil civil = CivilAt(now);
    char name[64];
    (void)snprintf(name, sizeof name, "/cleared-%04d%02d%02d-%02d%02d%02d", civil.year, civil.month, civil.day,
                   civil.hour, civil.minute, civil.second);
    std::string path = folder + name + ".json";
    for (int n = 2; std::filesystem::exists(path, ignored); ++n)
        path = folder + name + '-' + std::to_string(n) + ".json";
    return path;
}

std::vector<Schedule> ReadExport(const std::string& file) {
    const std::string text = ReadWhole(file);
    std::vector<Schedule> schedules;
    try {
        const Json document = Json::parse(text);
        if (document.value("schema", 0) != 1) RefuseExport(file, "It does not say \"schema\": 1.");
        for (const Json& json : document.at("schedules")) schedules.push_back(ReadSchedule(json));
    } catch (const Json::exception& error) {
        const std::string message = error.what();
        RefuseExport(
            file, "It is malformed: " +
                      Printable(message.substr(message.find("] ") == std::string::npos ? 0 : message.find("] ") + 2)) +
                      ".");
    }
    return schedules;
}

}  // namespace schedulectl
