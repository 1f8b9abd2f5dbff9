// Item lists into dictionaries and back.
#pragma once

#include "base/LList.h"
#include "xpc/LXPCData.h"

/// Stores every item of `items` in `dictionary`, a message or a reply that the caller has made. Of two items with one
/// name the one nearer the tail wins. Skipped are items of no type, and items that were never given a value that could
/// be stored: a text, UUID or byte block at address 0 or -1 (a block of no bytes may stand at 0), a number that is no
/// descriptor.
void SetXPCDictionary(void* dictionary, const LList<LXPCDataListable>& items);

/// Reads the registered keys out of a received dictionary: one new item in `result` per registered key that the
/// dictionary holds, in the order in which the keys were registered, each read as its key's type. An entry of another
/// type reads as that type's neutral value (0, a null address, descriptor -1); a double that is no number reads as 0
/// and one outside the range of `long` as the nearer end of it.
///
/// Allocates the items and nothing else. When memory runs out the exception passes; `result` then holds what was read
/// so far, for the caller to free (and to close, where descriptors are among it).
void GetXPCDictionary(void* dictionary, LList<LXPCDictionaryKeyListable>& keys, LList<LXPCDataListable>& result);
