#pragma once
// The built-in message table.

constexpr int QLM_MessageCount = 2015;

/// The text of a number, skipping a leading "xx " marker; "Error" outside 0..2014. Any thread.
const char* QLM_GetString(int index);
