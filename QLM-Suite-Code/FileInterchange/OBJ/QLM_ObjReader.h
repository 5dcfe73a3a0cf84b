#pragma once
// Wavefront OBJ and MTL into a mesh.

#include <cstdio>
#include <string>

class QLM_Mesh;

struct QLM_ObjReadOptions {
    bool singleDefaultGroup = false;
    bool useInternalNames = false;
    bool importMaps = true;
    const char* stopToken = nullptr; ///< a word that ends the text, case ignored
    size_t blockBytes = 4 << 20;     ///< read at a time; the mesh doesn't depend on it
};

/// Reads geometry from where the stream stands, then the material file beside `path`, and finishes the mesh with
/// AfterRawBuild. Polygons that don't parse are dropped. The stream stands behind the stop token's line afterwards.
/// False with a one-sentence reason when nothing came of it. Main thread; fans out.
bool QLM_LoadObjDataFromStream(FILE* stream, const std::string& path, QLM_Mesh* mesh, const QLM_ObjReadOptions& options,
                               std::string& error);

/// Opens and reads; a name that ends in 'z' is unpacked first, unless that gives more than any real text would. False
/// with a one-sentence reason.
bool QLM_ReadObjFile(const std::string& path, QLM_Mesh* mesh, const QLM_ObjReadOptions& options, std::string& error);

/// Reads a material library onto the mesh's materials by name; a file that can't be opened leaves the defaults.
void QLM_ReadMtlFile(const std::string& path, QLM_Mesh* mesh, bool importMaps);

/// Shows what reading has queued for the user: the warning about bad UVs, once in a session. Main thread.
void QLM_ShowQueuedObjWarnings();
