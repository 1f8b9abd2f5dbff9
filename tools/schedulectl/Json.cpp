#include "tools/schedulectl/Json.h"

#include "tools/schedulectl/Text.h"

namespace schedulectl {

Json Document(const std::string& command) {
    return {{"schema", 1}, {"command", command}};
}

Json ToJson(Moment moment) {
    return {{"epoch", moment}, {"local", FormatIso(moment)}};
}

Json ToJson(const Start& start) {
    return {{"likely", ToJson(start.likely)}, {"asked", ToJson(start.asked)}, {"moved", start.moved()}};
}

Json ToJson(const Schedule& schedule) {
    Json days = Json::array();
    for (int day = 1; day <= 7; ++day)
        if (KeepsWeekdays(schedule) && (schedule.weekDays.mask >> (day % 7) & 1) != 0)
            days.push_back(Lower(WeekdayName(day)));
    return {{"name", schedule.skedName},
            {"bundleId", schedule.bundleId},
            {"app", schedule.appPath},
            {"asked", ToJson(AskedMoment(schedule))},
            {"repeats", schedule.daily    ? "daily"
                        : schedule.weekly ? "weekly"
                                          : "once"},
            {"days", days},
            {"daily", schedule.daily},
            {"weekly", schedule.weekly},
            {"weekdayMask", schedule.weekDays.mask}};
}

Json WithOutlook(const Schedule& schedule, const Outlook& outlook, const World& world) {
    Json json = ToJson(schedule);
    const Application& application = world.ApplicationOf(schedule);
    json["application"] = {{"there", application.there},
                           {"version", application.version.empty() ? Json() : Json(application.version)},
                           {"fits", application.fits},
                           {"running", application.running}};
    json["next"] = outlook.next ? ToJson(*outlook.next) : Json();
    json["never"] = outlook.next ? Json() : Json(outlook.never);
    json["warnings"] = outlook.warnings;
    return json;
}

Json HelperToJson(const World& world) {
    const Situation& situation = world.situation;
    return {{"running", situation.helperRuns},
            {"pid", world.helperPid > 0 ? Json(world.helperPid) : Json()},
            {"since", situation.helperSince ? ToJson(*situation.helperSince) : Json()}};
}

Json ToJson(const Failure& failure, const std::string& command) {
    Json json = Document(command);
    json["error"] = {{"code", static_cast<int>(failure.code)},
                     {"what", failure.what},
                     {"why", failure.why},
                     {"try", failure.remedy},
                     {"suggestions", failure.suggestions}};
    return json;
}

std::string Dump(const Json& document) {
    return document.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace schedulectl
