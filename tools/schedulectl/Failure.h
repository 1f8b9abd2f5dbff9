// How a command ends: the documented exit codes, and the error that every part of the tool reports in three lines.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace schedulectl {

/// Scripts rely on these numbers; they are documented in the man page and never change their meaning.
enum class ExitCode {
    done = 0,         // done, or the answer is yes
    no = 1,           // the answer is no, or doctor found something to mend
    usage = 2,        // the command line, or an imported file, cannot be understood
    helperDown = 3,   // no helper runs, or it offers no service
    notFound = 4,     // no schedule of that name
    refused = 5,      // refused before anything was sent
    unconfirmed = 6,  // sent, but the store does not show it
    unreadable = 7,   // the store cannot be read
    notAllowed = 8,   // the service is there, but this user may not connect to it
};

/// Thrown anywhere, caught once in main, shown as three lines (what, why, try) or as one JSON document.
struct Failure {
    ExitCode code = ExitCode::usage;
    std::string what;                           // what did not happen, in a few words
    std::string why;                            // the reason, as far as it is known
    std::string remedy;                         // what to try next
    std::vector<std::string> suggestions = {};  // names that were perhaps meant, likeliest first
};

}  // namespace schedulectl
