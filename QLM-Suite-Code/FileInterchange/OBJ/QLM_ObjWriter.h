#pragma once
// A mesh into Wavefront OBJ and MTL.

#include <string>

class QLM_Mesh;

struct QLM_ObjWriteOptions {
    bool verticesOnly = false;
    bool exportGroups = true;
    bool internalNames = false;
};

/// Writes OBJ and MTL beside their targets and renames both when both are whole. False with the path that could not be
/// written in `failedPath`; the former files stand then. Main thread.
bool QLM_WriteObjFile(QLM_Mesh* mesh, const std::string& path, const QLM_ObjWriteOptions& options,
                      std::string& failedPath);
