# The graph partitioner, built from source with our allocator and thread-local random numbers: target wkl_metis.
add_library(wkl_metis INTERFACE)
