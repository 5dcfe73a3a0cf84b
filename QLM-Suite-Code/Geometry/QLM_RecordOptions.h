#pragma once
// What the records of geometry ask of the IO manager. Private to this room. Main thread.

#include <string>

class QLM_Object;

namespace QLM_RecordOptions {
/// A switch of the writer such as "OUTPUT_MORPHS". Without an IO manager everything is written.
bool ShallWrite(const char* key);
/// A switch that asks for less than everything, such as "OUTPUTTING_TEMPLATE"; off without an IO manager.
bool IsSet(const char* key);
/// A number of the reader such as "INPUT_DISPLAY_GROUP_OFFSET"; 0 without an IO manager.
int GetInt(const char* key);
/// Notes something for the end of the load, such as "INPUT_WARN_UV_MISMATCH".
void Warn(const char* key);
/// Imports the file that the object stands for, and its texture coordinates where they come in a file of their own.
/// False when it can't be found or read.
bool ImportFixedAsset(QLM_Object* object);
} // namespace QLM_RecordOptions
