#pragma once
// An OpenGL context without a screen, for what draws.

#include <cstdint>
#include <string>
#include <vector>

/// A buffer of a size with the process's one context current in it, which the program finds while the instance lives.
class OffscreenGL {
  public:
    OffscreenGL(int width, int height);
    ~OffscreenGL();
    OffscreenGL(const OffscreenGL&) = delete;
    OffscreenGL& operator=(const OffscreenGL&) = delete;
    /// Empty with a context, else why there is none.
    const std::string& GetError() const { return error; }
    /// The lower left part of the buffer as RGB rows, bottom row first.
    static std::vector<uint8_t> Read(int width, int height);

  private:
    std::string error;
    void* surface = nullptr;
};
