// The helper's answer to the platform's application object: its delegate, and what to do on the road to the end.
#include <platform_ending.h>

#include "app/LScheduleHelper.h"

std::unique_ptr<NSApplicationDelegate> NSApplicationCreateDelegate() {
    platform_set_ending_steps({LScheduleHelper::StopFirings, LScheduleHelper::DestroyServer});
    return std::make_unique<LScheduleHelper>();
}
