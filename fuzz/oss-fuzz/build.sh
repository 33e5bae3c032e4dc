#!/bin/bash -eu
# Builds every fuzz target into $OUT, each with its seeds and its dictionary, by the rules of OSS-Fuzz: $CXX and
# $CXXFLAGS say how to compile, $LIB_FUZZING_ENGINE is linked in the place of a main, and nothing is installed here.
# Wants cmake, ninja, python3, libexpected and nlohmann-json. Arguments are handed to cmake.

source_tree=$(cd "$(dirname "$0")/../.." && pwd)
build=${WORK:-$(mktemp -d)}/quarry

# What the fuzzing engine needs of the compiler is in $CXXFLAGS.
cmake -S "$source_tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_COMPILER="$CXX" \
    -DCMAKE_CXX_FLAGS="$CXXFLAGS" -DQUARRY_WERROR=OFF -DQUARRY_TESTS=OFF \
    -DQUARRY_FUZZ=ON -DQUARRY_FUZZING_ENGINE="$LIB_FUZZING_ENGINE" "$@"
cmake --build "$build" --target fuzzers -- --quiet

for source in "$source_tree"/fuzz/*_fuzzer.cpp; do
    target=$(basename "$source" .cpp)
    name=${target%_fuzzer}
    cp "$build/fuzz/$target" "$OUT/"
    # One archive of seeds, each under its own number: names of the two directories may be the same.
    seeds=$(mktemp -d)
    count=0
    for seed in "$source_tree/fuzz/corpus/$name"/* "$source_tree/fuzz/found_before/$name"/*; do
        [ ! -f "$seed" ] || { count=$((count + 1)) && cp "$seed" "$seeds/$count"; }
    done
    (cd "$seeds" && python3 -m zipfile -c "$OUT/${target}_seed_corpus.zip" ./*)
    rm -r "$seeds"
    dictionary=$source_tree/fuzz/dictionaries/$name.dict
    [ ! -f "$dictionary" ] || cp "$dictionary" "$OUT/$target.dict"
done
