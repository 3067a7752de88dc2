// The shared library is assembled from the per-area static libraries; this
// translation unit only gives CMake a source to attach the link to.
