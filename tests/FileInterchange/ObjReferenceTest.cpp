// The scanner against a slow, obvious reader over random text.

#include "Core/OS/String_Functions.h"
#include "ObjTestSupport.h"

#include <cmath>
#include <cstring>
#include <random>

namespace {

/// What a text says, read line by line with sscanf.
struct Reference {
    std::vector<float> vertices, uvs;
    struct Face {
        std::vector<std::pair<int, int>> corners;
        std::string material, group;
    };
    std::vector<Face> faces;
    int counted = 0, countedUVs = 0;
    bool useInternalNames = false, internal = false;
    std::string material = "-", group = "-";

    void Read(const std::string& path) {
        for (const bool counting : {true, false}) {
            FILE* file = std::fopen(path.c_str(), "rb");
            std::string line, token, rest;
            while (QLM_ReadLine(line, 9999, file)) {
                QLM_SplitKeyValue(line, token, rest);
                if (counting) {
                    counted += QLM_CompareNoCase(token, "v") == 0;
                    countedUVs += token == "vt";
                } else {
                    Line(line, token, rest);
                }
            }
            std::fclose(file);
        }
        vertices.resize(static_cast<size_t>(counted) * 3);
    }

    void Line(const std::string& line, const std::string& token, const std::string& rest) {
        float x[3] = {};
        if (token == "v") {
            std::sscanf(rest.c_str(), "%f %f %f", x, x + 1, x + 2);
            vertices.insert(vertices.end(), x, x + 3);
        } else if (token == "vt") {
            std::sscanf(rest.c_str(), "%f %f", x, x + 1);
            uvs.insert(uvs.end(), x, x + 2);
        } else if (token == "f" || token == "fo") {
            ReadFace(rest.c_str());
        } else if (token == "g") {
            if (!internal) group = rest;
        } else if (token == "usemtl") {
            material = rest;
        } else if (useInternalNames && line[0] == '#') {
            std::string word, name;
            QLM_SplitKeyValue(line.size() > 2 ? line.substr(2) : "", word, name);
            if (QLM_CompareNoCase(word, "InternalName:") != 0) return;
            internal = true;
            group = name;
        }
    }

    void ReadFace(const char* at) {
        Face face{{}, material, group};
        while (*at && face.corners.size() < 1000) {
            int v = 0, t = 0, n = 0;
            if (std::sscanf(at, "%d/%d/%d", &v, &t, &n) != 3) {
                t = 0;
                if (std::sscanf(at, "%d//%d", &v, &n) != 2 && std::sscanf(at, "%d/%d", &v, &t) < 1) return;
            }
            if (v == 0) break;
            const int read = static_cast<int>(vertices.size() / 3), readUVs = static_cast<int>(uvs.size() / 2);
            v = v >= 1 ? v - 1 : v + read;
            t = t == 0 || readUVs == 0 ? -1 : t >= 1 ? t - 1 : t + readUVs;
            if (v < 0 || v >= counted) return;
            if (countedUVs > 0 && (t < 0 || t >= countedUVs)) t = 0;
            face.corners.emplace_back(v, t);
            at += std::strcspn(at, " \t");
            at += std::strspn(at, " \t");
        }
        if (face.corners.size() >= 3) faces.push_back(face);
    }
};

class RandomText {
  public:
    explicit RandomText(uint32_t seed) : random(seed) {}
    std::string Make(int lines, bool hasUVs) {
        std::string text;
        for (int i = 0; i < lines; ++i)
            text += Blank(0) + Line(hasUVs) + Blank(0) + Pick({"\n", "\r\n", "\r", "\n\r", "\n\n"});
        return text;
    }

  private:
    int Number(int limit) { return static_cast<int>(random() % static_cast<uint32_t>(limit)); }
    std::string Pick(std::initializer_list<const char*> list) {
        return list.begin()[Number(static_cast<int>(list.size()))];
    }
    std::string Blank(int least) {
        return Number(4) ? std::string(static_cast<size_t>(least), ' ') : Pick({" ", "\t", "  ", " \t "});
    }
    std::string Float() {
        char digits[64];
        std::snprintf(digits, sizeof digits, Number(9) ? "%.*f" : "%.*e", Number(10), Number(2000001) / 1e6 - 1);
        return digits;
    }
    std::string Index() {
        if (Number(60) == 0) return Pick({"0", "999999", "-999999", "x", "", "+3", "- 3"});
        return std::to_string(Number(5) ? 1 + Number(60) : -1 - Number(20));
    }
    std::string Corner() {
        switch (Number(4)) {
        case 0:
            return Index();
        case 1:
            return Index() + "/" + Index();
        case 2:
            return Index() + "//" + Index();
        default:
            return Index() + "/" + Index() + "/" + Index();
        }
    }
    std::string Line(bool hasUVs) {
        const int kind = Number(100);
        if (kind < 35) return "v" + Blank(1) + Float() + Blank(1) + Float() + Blank(1) + Float();
        if (kind < 50 && hasUVs) return "vt" + Blank(1) + std::to_string(Number(1000) / 1000.0) + " 0.5";
        if (kind < 88) {
            std::string face = Number(20) ? "f" : "fo";
            for (int i = 0, count = Number(300) ? 2 + Number(4) : 2500; i < count; ++i) face += Blank(1) + Corner();
            return face;
        }
        if (kind < 91) return "usemtl" + Blank(1) + Pick({"skin", "left arm", "nail"});
        if (kind < 94) return "g" + Blank(1) + Pick({"head", "left arm", "toe"});
        if (kind < 96) return "#  InternalName:" + Blank(1) + Pick({"hip", "neck one"});
        return Pick(
            {"V 1 2 3", "vn 0 0 1", "l 1 2", "s off", "#", "# f 1 2 3", "v", "f", "vt", "o thing", "v 1 nan 2", ""});
    }
    std::mt19937 random;
};

using ObjReference = Obj;

TEST_F(ObjReference, RandomTextsGiveTheSameMesh) {
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        const std::string text = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n" + RandomText(seed).Make(6000, seed % 3 != 0);
        Reference expected;
        expected.useInternalNames = seed % 2;
        expected.Read(Put("a.obj", text));
        QLM_ObjReadOptions options;
        options.useInternalNames = expected.useInternalNames;
        options.blockBytes = seed % 4 ? 20000 : 4 << 20;
        ASSERT_TRUE(Read(text, options)) << error;

        ASSERT_EQ(Mesh().GetVCount(), expected.counted);
        ASSERT_EQ(Mesh().GetVTCount(), expected.countedUVs);
        for (size_t i = 0; i < expected.vertices.size(); ++i) {
            const float want = std::isfinite(expected.vertices[i]) ? expected.vertices[i] : 0.0f;
            ASSERT_EQ(Mesh().Vertices.GetData()[i], want) << i;
        }
        for (size_t i = 0; i < expected.uvs.size(); ++i)
            ASSERT_EQ(Mesh().TextureVertices.GetData()[i], expected.uvs[i]) << i;
        ASSERT_EQ(Mesh().GetPCount(), static_cast<int>(expected.faces.size()));
        for (int p = 0; p < Mesh().GetPCount(); ++p) {
            const Reference::Face& face = expected.faces[static_cast<size_t>(p)];
            const QLM_Polygon& polygon = Mesh().GetPolygon(p);
            ASSERT_EQ(polygon.count, static_cast<int>(face.corners.size())) << p;
            for (int i = 0; i < polygon.count; ++i) {
                ASSERT_EQ(polygon.corners[i].vertex, face.corners[static_cast<size_t>(i)].first) << p;
                ASSERT_EQ(polygon.corners[i].textureVertex, face.corners[static_cast<size_t>(i)].second) << p;
            }
            QLM_Material* material = Mesh().GetMaterial(polygon.material);
            const QLM_Group2* group = Mesh().GetGroup(polygon.group);
            ASSERT_EQ(material ? material->GetName() : "-", face.material) << p;
            ASSERT_EQ(group ? group->GetName() : "-", face.group) << p;
        }
    }
}

} // namespace
