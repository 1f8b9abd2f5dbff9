#include "cf_object.h"

CFTypeRef CFRetain(CFTypeRef object) {
    static_cast<const CFObject*>(object)->references.fetch_add(1, std::memory_order_relaxed);
    return object;
}

void CFRelease(CFTypeRef object) {
    if (object == nullptr) return;
    const auto* root = static_cast<const CFObject*>(object);
    if (root->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete root;
}
