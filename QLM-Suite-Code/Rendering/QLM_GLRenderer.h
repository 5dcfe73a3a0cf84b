#pragma once
// The OpenGL road of the viewports: drawing a frame of the canvas into the current context. Main thread.

class QLM_Viewport;

/// Draws every shown viewport into the back buffer of the current context: the finished software picture at rest,
/// polygons with preview textures while `interacting`, then the stroke's preview, the tool's drawing and the frames.
/// Does nothing without a context. The caller swaps buffers.
void QLM_GL_DrawCanvas(bool interacting);
/// Reads vendor, renderer, version and extensions once into the log.
void QLM_GL_TestOpenGL();
