#!/usr/bin/env bash
# Installs the release build into a scratch directory and builds and runs the first example against it, the way
# a program of somebody else would.
. "$(dirname "$0")/lib.sh"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install build/release --prefix "$scratch/prefix" >/dev/null
mkdir "$scratch/user"
cp examples/first.cpp "$scratch/user/"
cat >"$scratch/user/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(user LANGUAGES CXX)
find_package(hive REQUIRED)
add_executable(user first.cpp)
target_link_libraries(user PRIVATE hive::hive)
CMAKE
cmake -S "$scratch/user" -B "$scratch/user/build" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/user/build"
"$scratch/prefix/bin/hivectl" new "$scratch/sample.hive"
"$scratch/prefix/bin/hivectl" import "$scratch/sample.hive" examples/sample.reg
"$scratch/user/build/user" "$scratch/sample.hive" Software/Acme/Editor "" | grep -x "Acme Editor 4"
echo "installed package works"
