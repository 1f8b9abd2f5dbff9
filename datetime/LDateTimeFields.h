// What the members of LDateTime share: the step between a moment and its calendar fields, and the reading of numbers.
// Of use inside this directory and to its tests.
#pragma once

#include <ctime>
#include <string_view>

#include "datetime/LDateTime.h"

/// The present moment; the nearest `long` where the clock has left its range.
long LCurrentSeconds();

/// The local fields of a moment; false when it has none (a year beyond `int`).
bool LLocalFields(long seconds, std::tm& fields);

/// An empty broken-down time with the daylight flag unknown.
std::tm LBlankFields();

/// `mktime` into `seconds`; false, with `seconds` as it was, when it answers -1 or the moment does not fit.
bool LStoreLocalFields(long& seconds, std::tm& fields);

/// Year and month (1 to 12) as a broken-down time counts them, the year by the year rule.
void LSetYearAndMonth(std::tm& fields, int year, int month);

/// A moment from the compiler's build-date text, "May  1 2015".
LDateTime LBuildDateFromText(const char* text);

/// The date order that a locale's date format shows (see LGetLocaleDateFormatOrder).
int LDateOrderOfFormat(std::string_view format);

/// `value` x 10 + `digit`, staying at the largest `int`. Neither may be negative.
int LAppendDigit(int value, int digit);

/// Reads as "%d" of sscanf and moves `text` past the number; false at a mismatch, `value` is then as it was.
bool LScanInt(const char*& text, int& value);

/// Up to three numbers with `separator` between them, as "%d-%d-%d" reads them: stops at the first mismatch. True when
/// all three were read.
bool LScanThree(const char*& text, char separator, int& first, int& second, int& third);
