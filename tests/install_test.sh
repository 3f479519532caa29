#!/bin/sh
# Installs a build into a folder, moves it, and there builds and runs a C host and a C++ host by
# CMake and by pkg-config; each must print what the host inside the build prints. Then the
# headers alone.
#
#   install_test.sh SOURCE BUILD
set -eu
source=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >"$work/log"
mv "$work/first" "$work/moved"
mkdir "$work/hosts"
cp "$source/hosts/example/smooth.c" "$source/tests/install_test.cpp" "$work/hosts"
cd "$work/hosts"
if grep -rlF -e "$source" -e "$work/first" ../moved --include='*.cmake' --include='*.pc'; then
    echo "these name folders of the build"
    exit 1
fi
wanted=$("$build/hosts/example/smooth")

# HOST must bind to the moved library and print the wanted line.
check() {
    ldd "$1" | grep -qF "libdiffusefilt_halide.so => $(realpath ../moved)" ||
        { echo "$1 binds to another library:" && ldd "$1" && exit 1; }
    [ "$("$1")" = "$wanted" ] || { echo "$1 does not print: $wanted" && exit 1; }
}

cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.16)
project(hosts LANGUAGES C CXX)
set(CMAKE_C_STANDARD 99)
set(CMAKE_CXX_STANDARD 17)
find_package(diffusefilt_halide 1.0 REQUIRED)
foreach(source smooth.c install_test.cpp)
  add_executable(by_cmake_${source} ${source})
  target_link_libraries(by_cmake_${source} diffusefilt_halide::diffusefilt_halide)
endforeach()
END
cmake -G Ninja -S . -B build -DCMAKE_PREFIX_PATH="$(realpath ../moved)" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build build >"$work/log" || { cat "$work/log"; exit 1; }
check build/by_cmake_smooth.c
check build/by_cmake_install_test.cpp

PKG_CONFIG_PATH=$(dirname "$(find ../moved -name '*.pc' -exec realpath {} \;)")
export PKG_CONFIG_PATH
flags=$(pkg-config --cflags diffusefilt_halide)
libs="$(pkg-config --libs diffusefilt_halide) \
    -Wl,-rpath,$(pkg-config --variable=libdir diffusefilt_halide | xargs realpath)"
strict="-Wall -Wextra -Werror -pedantic-errors"
# shellcheck disable=SC2086 # lists of words
{
    cc -std=c99 $strict smooth.c $flags $libs -o by_pkgconfig_smooth.c
    c++ -std=c++17 $strict install_test.cpp $flags $libs -o by_pkgconfig_install_test.cpp
}
check ./by_pkgconfig_smooth.c
check ./by_pkgconfig_install_test.cpp

# The records' header may come before, after, or, in C, not at all.
own='#include <diffusefilt_halide.h>'
records='#include <HalideRuntime.h>'
for compiler in gcc clang; do
    command -v "$compiler" >"$work/log" || continue
    for language in 'c -std=c99' 'c++ -std=c++17'; do
        for lines in "$own" "$records\n$own" "$own\n$records" "$own\n$own"; do
            # shellcheck disable=SC2059,SC2086
            printf "$lines\n" | "$compiler" -x $language $strict $flags -fsyntax-only -
        done
    done
    # shellcheck disable=SC2086
    echo '#include <diffusefilt_halide.hpp>' |
        "$compiler" -x c++ -std=c++17 $strict $flags -fsyntax-only -
done
