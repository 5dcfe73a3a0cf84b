#pragma once
// Registry of interface pictures as GL textures, and the guard of every GL entry. Main thread.

#include "Core/Objects/QLM_BaseClass.h"

#include <functional>

/// Tells whether a context is current; the shell hands over the platform's test. False without one.
void QLM_GL_SetContextTest(std::function<bool()> test);
bool QLM_GL_IsAvailable();
inline bool QLM_GL_IsCurrent() { return QLM_GL_IsAvailable(); }
/// Deletes texture names that were queued while no context was current; and queues a name for deletion (any thread).
void QLM_GL_DeleteQueuedTextures();
void QLM_GL_QueueTextureDeletion(uint32_t name);

/// An interface picture; keeps its pixels and uploads at the first Set with a current context.
class QLM_GL_Texture : public virtual QLM_BaseClass {
  public:
    /// Takes a copy of width x height x (alpha ? 4 : 3) bytes, row 0 at the bottom; enters the global table by `name`.
    QLM_GL_Texture(const uint8_t* pixels, const char* name, uint32_t width, uint32_t height, bool alpha);
    ~QLM_GL_Texture() override;

    void Set();
    /// The bytes that an upload takes and their size: the pixels, or, where they are to be padded, a zeroed block whose
    /// sides are powers of two with the picture in its lower left corner. Needs no context.
    std::vector<uint8_t> BuildUploadBlock(uint32_t& width, uint32_t& height) const;
    /// Drops the alpha plane once; a made texture is deleted unless shared.
    void ConvertToRGB();

    uint32_t Width = 0, Height = 0, TextureName = 0;
    std::vector<uint8_t> Pixels;
    bool HasAlpha = false, IsRGB = false, IsShared = false, PadToPowerOfTwo = false, Blend = true;
    uint32_t Filter = 9728;
    float Scale = 1.0f;
    int UseCount = 0;
};

void QLM_GL_InitTextures();
void QLM_GL_FreeTextures();
/// The picture of that name, null when missing.
QLM_GL_Texture* QLM_GL_FindTexture(const std::string& name);
/// Three equal bytes for each one.
std::vector<uint8_t> QLM_GL_ExpandGrey(const uint8_t* grey, size_t count);
/// Uploads a block into the bound texture; does nothing without a context.
void QLM_GL_SetActualTexture(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t filter, bool grey,
                             bool compress);

/// Uploads an RGB block into a texture that is made on first use: clamped, nearest, modulating. It stays bound. Does
/// nothing without a context.
void QLM_GL_UploadPreview(uint32_t& name, const uint8_t* rgb, uint32_t width, uint32_t height);

/// Reads Graphics.dat ("<256 bytes name><uint32 size><bytes>"...) into the texture table. False with a reason.
bool QLM_LoadGraphicsFile(const std::string& path, std::string& error);

/// A cached GL display list, rebuilt after QLM_InvalidateDisplayLists.
class QLM_DisplayList {
  public:
    ~QLM_DisplayList() { Delete(); }
    void Begin(); ///< without a current context nothing is recorded
    void End();
    bool Call();
    bool IsValid(); ///< deletes a list that is out of date
    void Delete();

  private:
    uint32_t name = 0, stamp = 0;
};
void QLM_InvalidateDisplayLists();
