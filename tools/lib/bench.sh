# shellcheck shell=bash disable=SC2034
# What the benchmarks need. Sourced, not run.

# Their own library, and the libraries that they measure beside ours.
BENCH_PACKAGES=(libbenchmark-dev libboost-filesystem-dev libboost-log-dev libexpat1-dev libfmt-dev libgoogle-perftools-dev
    libjemalloc-dev libmimalloc-dev libpoco-dev libpugixml-dev libspdlog-dev libxml2-dev uuid-dev)
