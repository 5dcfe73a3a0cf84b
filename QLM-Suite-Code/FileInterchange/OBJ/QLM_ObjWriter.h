#pragma once
// A mesh into Wavefront OBJ and MTL.

#include <string>

class QLM_Mesh;

struct QLM_ObjWriteOptions {
    bool verticesOnly = false;
    bool exportGroups = true;
    bool internalNames = false;
    bool changedGroupsOnly = false; ///< of group files: skip groups in which no vertex has moved
};

/// Writes OBJ and MTL beside their targets and renames both when both are whole. The shape is the resolved one, where
/// the object stands, as separate vertices where it is welded. False with the path that could not be written in
/// `failedPath`; the former files stand then. Main thread; fans out.
bool QLM_WriteObjFile(QLM_Mesh* mesh, const std::string& path, const QLM_ObjWriteOptions& options,
                      std::string& failedPath);

/// Writes an OBJ for each group, "stem_group.OBJ", in the object's own space, and one MTL for all. What can't be
/// written is told and left out; false then. Polygons that lie in no group are told of. Main thread.
bool QLM_WriteObjGroups(QLM_Mesh* mesh, const std::string& path, const QLM_ObjWriteOptions& options);
