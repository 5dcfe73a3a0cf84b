#include "Geometry/QLM_RecordOptions.h"

#include "Core/OS/QLM_OS.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Messages.h"
#include "FileInterchange/QLM_IOManager.h"
#include "Geometry/QLM_Object.h"

#include <algorithm>

namespace {
QLM_IOManager* FindIOManager() {
    QLM_IOManager* manager = QLM_GetManagers().GetIOManager();
    return QLM_IsItemUsable(manager) ? manager : nullptr;
}

/// The file of a reference; what follows "#" names a part of it.
std::string FileOf(const std::string& reference) {
    std::string path = reference.substr(0, reference.find('#'));
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

bool ImportPart(QLM_IOManager& io, QLM_Object* object, const std::string& reference, QLM_ImporterCode code) {
    const std::string path = FileOf(reference);
    std::string found;
    if (!QLM_GetEngine() || !QLM_GetEngine()->FindFile(path, 0, found)) {
        QLM_OS::Get().PrintMessage(QLM_GetString(1992), path);
        return false;
    }
    return io.ImportGeometryFile(object, found + reference.substr(path.size()), code, 1);
}
} // namespace

bool QLM_RecordOptions::ShallWrite(const char* key) {
    const QLM_IOManager* io = FindIOManager();
    return !io || io->GetBool(key);
}

bool QLM_RecordOptions::IsSet(const char* key) {
    const QLM_IOManager* io = FindIOManager();
    return io && io->GetBool(key);
}

int QLM_RecordOptions::GetInt(const char* key) {
    const QLM_IOManager* io = FindIOManager();
    return io ? io->GetInt(key) : 0;
}

void QLM_RecordOptions::Warn(const char* key) {
    if (QLM_IOManager* io = FindIOManager()) io->SetBool(key, true);
}

bool QLM_RecordOptions::ImportFixedAsset(QLM_Object* object) {
    QLM_IOManager* io = FindIOManager();
    const std::string reference = object->GetString("fixedAsset/path");
    if (!io || reference.empty()) return false;
    io->SetBool("INPUT_MESH_FIXED_ASSET", true); // keeps the file's own names
    const QLM_ImporterCode code = QLM_ImporterCodeOfPath(FileOf(reference));
    bool imported = ImportPart(*io, object, reference, code);
    if (imported && code == QLM_ImporterCode::DSFGeometry)
        imported = ImportPart(*io, object, object->GetString("fixedAsset/uvset/path"), QLM_ImporterCode::DSFReference);
    io->RemoveProperty("INPUT_MESH_FIXED_ASSET");
    return imported;
}
