#pragma once
// Texts read as OBJ files in a folder that goes with the test.

#include "Core/OS/QLM_OS.h"
#include "FileInterchange/OBJ/QLM_ObjReader.h"
#include "Geometry/QLM_Mesh.h"
#include "Geometry/QLM_Object.h"
#include "Support/TestScene.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

class Obj : public testing::Test {
  protected:
    Obj() {
        char pattern[] = "/tmp/quillmere-obj-XXXXXX";
        folder = std::string(mkdtemp(pattern)) + "/";
    }
    ~Obj() override { fs::remove_all(folder); }

    std::string Put(const std::string& name, const std::string& text) {
        std::ofstream(folder + name, std::ios::binary) << text;
        return folder + name;
    }
    /// Reads a text as a file named a.obj into a new mesh of `object`.
    bool Read(const std::string& text, QLM_ObjReadOptions options = {}) {
        const std::string path = Put("a.obj", text);
        object.SetMesh(new QLM_Mesh(&object));
        return QLM_ReadObjFile(path, object.GetMesh(), options, error);
    }
    static std::string Text(const std::string& path) {
        std::stringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    /// True when a message, box or status text so far is the given one.
    static bool WasTold(const std::string& text) {
        const auto& all = QLM_OS::Get().recorded;
        return std::any_of(all.begin(), all.end(), [&](const auto& message) { return message.text == text; });
    }
    QLM_Mesh& Mesh() { return *object.GetMesh(); }
    std::vector<int> Corners(int p, bool texture) {
        std::vector<int> corners;
        for (int i = 0; i < Mesh().GetPolygonVertexCount(p); ++i)
            corners.push_back(texture ? Mesh().GetPolygonTextureVertex(p, i) : Mesh().GetPolygonRawVertex(p, i));
        return corners;
    }

    TestScene scene;
    std::string folder, error;
    QLM_Object object;
};

inline const std::string Square = "v -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\n";
inline const std::string UVs = "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n";
