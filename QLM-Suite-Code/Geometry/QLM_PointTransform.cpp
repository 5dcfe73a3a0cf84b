#include "Geometry/QLM_PointTransform.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/Threads/QLM_ThreadCruncher.h"
#include "Math/QLM_Matrix.h"

void QLM_MultByMatrix(float* points, int64_t count, const float* matrix) {
    QLM_ThreadCrunch(count, [=](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int64_t i = range.start; i < range.end; ++i)
            MatrixTransformPoint(matrix, points + 3 * i, points + 3 * i);
    }, "MultByMatrix_ThreadFunc");
}

void QLM_MultByMatrixIndexed(float* points, const int32_t* indices, int64_t indexCount, const float* matrix) {
    QLM_ThreadCrunch(indexCount, [=](const ThreadCrunchRange& range) {
        QLM_TRACE(3);
        for (int64_t i = range.start; i < range.end; ++i) {
            float* point = points + 3 * static_cast<int64_t>(indices[i]);
            MatrixTransformPoint(matrix, point, point);
        }
    }, "MultByMatrixIndexed_ThreadFunc");
}
