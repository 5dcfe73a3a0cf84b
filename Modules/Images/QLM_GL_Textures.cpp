#include "Images/QLM_GL_Textures.h"

#include "Core/OS/QLM_OS.h"

#include <GL/gl.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <mutex>

namespace {

constexpr GLint compressedRGB = 34029;

std::function<bool()> contextTest;
std::vector<QLM_GL_Texture*>* textures = nullptr; ///< the global table; null before QLM_GL_InitTextures

std::mutex queueMutex;
std::vector<GLuint> queuedTextures, queuedLists;

std::atomic<uint32_t> displayListGeneration{1};

/// Asked once with a current context. Software drivers spend more on packing than they save.
bool DriverCompresses() {
    static const bool compresses = [] {
        const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        return renderer && !strstr(renderer, "llvmpipe") && !strstr(renderer, "softpipe") &&
               !strstr(renderer, "swrast");
    }();
    return compresses;
}

void SetParameters(uint32_t filter) {
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GLint(filter));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GLint(filter));
}

void QueueDeletion(std::vector<GLuint>& queue, uint32_t name) {
    if (name == 0) return;
    const std::lock_guard<std::mutex> guard(queueMutex);
    queue.push_back(name);
}

} // namespace

void QLM_GL_SetContextTest(std::function<bool()> test) { contextTest = std::move(test); }

bool QLM_GL_IsAvailable() { return QLM_OS::IsMainThread() && contextTest && contextTest(); }

void QLM_GL_QueueTextureDeletion(uint32_t name) { QueueDeletion(queuedTextures, name); }

void QLM_GL_DeleteQueuedTextures() {
    if (!QLM_GL_IsAvailable()) return;
    std::vector<GLuint> names, lists;
    {
        const std::lock_guard<std::mutex> guard(queueMutex);
        names.swap(queuedTextures);
        lists.swap(queuedLists);
    }
    if (!names.empty()) glDeleteTextures(GLsizei(names.size()), names.data());
    for (const GLuint list : lists) glDeleteLists(list, 1);
}

QLM_GL_Texture::QLM_GL_Texture(const uint8_t* pixels, const char* name, uint32_t width, uint32_t height, bool alpha)
    : Width(width), Height(height), Pixels(pixels, pixels + size_t(width) * height * (alpha ? 4 : 3)), HasAlpha(alpha) {
    SetNameText(name);
    if (textures) textures->push_back(this);
}

QLM_GL_Texture::~QLM_GL_Texture() {
    if (textures) std::erase(*textures, this);
    if (!IsShared) QLM_GL_QueueTextureDeletion(TextureName);
}

void QLM_GL_Texture::Set() {
    if (!QLM_GL_IsAvailable()) return;
    QLM_GL_DeleteQueuedTextures();
    glEnable(GL_TEXTURE_2D);
    if (HasAlpha && Blend) {
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    }
    if (TextureName != 0) {
        glBindTexture(GL_TEXTURE_2D, TextureName);
        return;
    }
    glGenTextures(1, &TextureName);
    glBindTexture(GL_TEXTURE_2D, TextureName);
    uint32_t width, height;
    const std::vector<uint8_t> block = BuildUploadBlock(width, height);
    if (HasAlpha) {
        SetParameters(Filter);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, GLsizei(width), GLsizei(height), 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     block.data());
    } else QLM_GL_SetActualTexture(block.data(), width, height, Filter, false, false);
}

std::vector<uint8_t> QLM_GL_Texture::BuildUploadBlock(uint32_t& width, uint32_t& height) const {
    width = PadToPowerOfTwo ? std::bit_ceil(Width) : Width;
    height = PadToPowerOfTwo ? std::bit_ceil(Height) : Height;
    if (width == Width && height == Height) return Pixels;
    const size_t depth = HasAlpha ? 4 : 3, rowBytes = Width * depth;
    std::vector<uint8_t> padded(size_t(width) * height * depth);
    for (size_t y = 0; y < Height; y++) memcpy(&padded[y * width * depth], &Pixels[y * rowBytes], rowBytes);
    return padded;
}

void QLM_GL_Texture::ConvertToRGB() {
    if (!HasAlpha || IsRGB) return;
    for (size_t i = 0, count = size_t(Width) * Height; i < count; i++) memmove(&Pixels[i * 3], &Pixels[i * 4], 3);
    Pixels.resize(size_t(Width) * Height * 3);
    HasAlpha = false;
    IsRGB = true;
    if (!IsShared) {
        QLM_GL_QueueTextureDeletion(TextureName);
        TextureName = 0;
        QLM_GL_DeleteQueuedTextures();
    }
}

void QLM_GL_InitTextures() {
    if (!textures) textures = new std::vector<QLM_GL_Texture*>;
}

void QLM_GL_FreeTextures() {
    if (!textures) return;
    while (!textures->empty()) delete textures->back();
    delete textures;
    textures = nullptr;
    QLM_GL_DeleteQueuedTextures();
}

QLM_GL_Texture* QLM_GL_FindTexture(const std::string& name) {
    if (!textures) return nullptr;
    const auto found = std::find_if(textures->begin(), textures->end(), [&](auto* t) { return name == t->GetName(); });
    return found == textures->end() ? nullptr : *found;
}

std::vector<uint8_t> QLM_GL_ExpandGrey(const uint8_t* grey, size_t count) {
    std::vector<uint8_t> color(count * 3);
    for (size_t i = 0; i < count; i++) memset(&color[i * 3], grey[i], 3);
    return color;
}

void QLM_GL_SetActualTexture(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t filter, bool grey,
                             bool compress) {
    if (!QLM_GL_IsAvailable()) return;
    std::vector<uint8_t> tripled;
    if (grey) {
        tripled = QLM_GL_ExpandGrey(pixels, size_t(width) * height);
        pixels = tripled.data();
    }
    SetParameters(filter);
    const GLint format = compress && DriverCompresses() ? compressedRGB : GL_RGB;
    glTexImage2D(GL_TEXTURE_2D, 0, format, GLsizei(width), GLsizei(height), 0, GL_RGB, GL_UNSIGNED_BYTE, pixels);
}

void QLM_GL_UploadPreview(uint32_t& name, const uint8_t* rgb, uint32_t width, uint32_t height) {
    if (!QLM_GL_IsAvailable()) return;
    if (name == 0) glGenTextures(1, &name);
    glBindTexture(GL_TEXTURE_2D, name);
    SetParameters(GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, GLsizei(width), GLsizei(height), 0, GL_RGB, GL_UNSIGNED_BYTE, rgb);
}

// ------------------------------------------------------------------------------------------------- display lists

void QLM_DisplayList::Begin() {
    Delete();
    if (!QLM_GL_IsAvailable()) return;
    name = glGenLists(1);
    if (name != 0) glNewList(name, GL_COMPILE);
}

void QLM_DisplayList::End() {
    if (name == 0) return;
    glEndList();
    stamp = displayListGeneration;
}

bool QLM_DisplayList::Call() {
    if (!IsValid() || !QLM_GL_IsAvailable()) return false;
    glCallList(name);
    return true;
}

bool QLM_DisplayList::IsValid() {
    if (name != 0 && stamp == displayListGeneration) return true;
    Delete();
    return false;
}

void QLM_DisplayList::Delete() {
    QueueDeletion(queuedLists, name);
    name = 0;
    QLM_GL_DeleteQueuedTextures();
}

void QLM_InvalidateDisplayLists() { displayListGeneration++; }
