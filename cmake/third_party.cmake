# Third-party parts: BLAS/LAPACK with 64-bit integers, the graph partitioner, and what tests and tools need.
# All that goes into the product is static and hidden; the targets are wkl_blas and wkl_metis.
find_library(WKL_OPENBLAS64 NAMES libopenblas64.a PATHS /usr/lib/x86_64-linux-gnu/openblas64-openmp NO_DEFAULT_PATH)
if(NOT WKL_OPENBLAS64)
    message(FATAL_ERROR "libopenblas64.a (OpenMP flavour, 64-bit integers) not found; run scripts/setup")
endif()
add_library(wkl_blas INTERFACE)
target_link_libraries(wkl_blas INTERFACE ${WKL_OPENBLAS64} OpenMP::OpenMP_C gfortran m)

include(metis)

if(WKL_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
