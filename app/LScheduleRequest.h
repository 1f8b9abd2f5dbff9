// One request, as collected from the items of a message: what it asks for and with which values.
//
// The texts point into the received message and are null when they are missing or could not be read. Collecting decides
// nothing but where the walk ends. Texts that identify no schedule (missing, too long, not UTF-8, or the one identity
// whose record would take the place of the index) are refused by the scheduler: the action that was chosen then does
// nothing, and no other takes its place.
#pragma once

#include "base/LList.h"
#include "xpc/LXPCData.h"

struct LScheduleRequest {
    enum class Action { None, Add, Delete, DeleteAll, Introduce, AskShutdown };
    /// How the walk over the items ended.
    enum class End { AllRead, Test, Shutdown };

    const char* bundleId = nullptr;
    const char* bundlePath = nullptr;
    const char* name = nullptr;  // of the schedule; shared by add and delete, the delete's text comes later and stays
    long start = 0;              // as the sender named it, seconds since 1970 UTC
    bool daily = false;
    bool weekly = false;
    unsigned long weekdays = 0;  // as received

    bool add = false;
    bool remove = false;
    bool removeAll = false;
    bool introduce = false;
    bool askShutdown = false;

    /// Reads the items in order. The test and the shutdown end the walk: what follows them is not looked at.
    End Collect(const LList<LXPCDataListable>& items);

    /// The one action to perform: add before delete before delete all before introduction before shutdown question.
    [[nodiscard]] Action ChosenAction() const;

    /// What the sender named, minus the 10 seconds by which schedules are early; at the end of the range it stays
    /// there.
    [[nodiscard]] long EarlyStart() const;

    /// The sender is the main application: its bundle is named as that is, and so is its identifier. Not when one of
    /// the two is missing.
    [[nodiscard]] bool IsFromMainApp() const;
};
