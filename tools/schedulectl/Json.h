// The documents that --json prints; docs/schedulectl-schema.json describes them. Fields are added, never renamed or
// removed, as long as "schema" stays 1.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/schedulectl/Failure.h"
#include "tools/schedulectl/World.h"

namespace schedulectl {

using Json = nlohmann::ordered_json;

/// {"schema": 1, "command": ...}: what every document begins with.
Json Document(const std::string& command);
/// {"epoch": 1798131600, "local": "2026-12-24T18:00:00+01:00"}
Json ToJson(Moment moment);
Json ToJson(const Start& start);
/// What was asked for, as import reads it back.
Json ToJson(const Schedule& schedule);
/// The same with its application, its next start or why there is none, and what may surprise.
Json WithOutlook(const Schedule& schedule, const Outlook& outlook, const World& world);
Json HelperToJson(const World& world);
Json ToJson(const Failure& failure, const std::string& command);

/// One line; bytes that are no UTF-8 become replacement characters.
std::string Dump(const Json& document);

}  // namespace schedulectl
