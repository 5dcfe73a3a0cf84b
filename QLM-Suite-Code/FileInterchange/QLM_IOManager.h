#pragma once
// The front door of all file reading and writing.

#include "Engine/QLM_Manager.h"
#include "FileInterchange/QLM_FileTypes.h"

class QLM_Mesh;
class QLM_Object;

/// Main thread.
class QLM_IOManager : public QLM_Manager {
  public:
    QLM_IOManager();

    /// Imports a geometry file, found as the reference stands or on the search paths. `object` may be null; a new one
    /// joins the object manager. mode 0: by the user; 1: a reload into a given object, without maps and morphs.
    /// False without a message when there is no such file, else after one that names the file and what was wrong;
    /// nothing of a failed import stays.
    bool ImportGeometryFile(QLM_Object* object, const std::string& fileReference, QLM_ImporterCode code, int mode);
    /// As if the file were dropped on the canvas: by its extension, objects and pictures (a picture becomes a map).
    /// False after one message.
    bool ImportDroppedFile(const std::string& path);
    /// Reads an OBJ into a new mesh of the object; the former mesh stays when that fails, after one message.
    bool LoadObject(const std::string& path, QLM_Object* object, bool useInternalNames);
    /// Asks for a path for each marked object, or for the current one, and exports as the options say.
    /// False after a message when there is no object, or when a file can't be written.
    bool ExportObjects();
    /// Exports to a path as the options say: one file, or one for each group.
    bool ExportObject(QLM_Object* object, const std::string& path);
    /// Writes OBJ and MTL beside their targets and renames them; false after one message. Names the maps that haven't
    /// been saved.
    bool ExportObjectFile(QLM_Mesh* mesh, const std::string& path, bool verticesOnly, bool exportGroups);
    /// Writes "stem_group.OBJ" for each group, and one MTL; false after a message for each that can't be written.
    bool ExportGroupsAsSeparateObjects(QLM_Object* object, const std::string& path);

    bool ExportVerticesOnly = false, ExportGroups = true, ExportGroupsAsSeparateFiles = false,
         ExportChangedGroups = false;
    bool ExportMorphs = false, UseInternalNameforGroups = false, FlipNormalsOnImport = false;
    bool FlipUVsHorizontallyOnImport = false, FlipUVsVerticallyOnImport = false, CenterOnImport = false;
    bool ScaleOnImport = false, ImportMaps = true, ImportMorphs = true;
    float ScaleFactor = 1.0f;
    bool transientFlag = false; ///< cleared by every idle pass
    /// Named access for scripts and, later, project files; false for an unknown key or a bad value.
    bool SetOption(const std::string& key, const std::string& value, std::string& error);

  private:
    bool ImportObj(QLM_Object* object, const std::string& path, int mode);
    /// What an import leaves to do: maps of the objects it made, the shape's caches, a first view.
    void AfterImport(QLM_Object* object, const std::string& path, int mode);
};
