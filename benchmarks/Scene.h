#pragma once
// The program without a shell, and generated input.

#include <string>

class QLM_Object;

/// Starts the program once for all benchmarks.
void StartBenchmarkProgram();
void StopBenchmarkProgram();
/// A wavy grid of columns x rows quads with UVs inside 0..1, written once below the temporary folder; its path.
std::string GridFile(int columns, int rows);
/// Empties the project, imports the file and frames it on a canvas; null when it can't be imported.
QLM_Object* ImportForBenchmark(const std::string& path, int canvasWidth, int canvasHeight);
/// Binds a map of one colour to the object's first material.
void BindPlainMap(QLM_Object* object, unsigned side);
/// Idle passes until nothing is pending.
void SettleBenchmark();
/// Highest resident size of the process so far, in megabytes.
double PeakMegabytes();
