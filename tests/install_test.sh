#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs a build into a folder, moves it, and there builds and runs a C host and a C++ host by
# CMake and by pkg-config; each must print what the host inside the build prints. Then the
# headers alone, with HalideRuntime.h and without.
#
#   install_test.sh SOURCE BUILD FOLDER_OF_HALIDE_RUNTIME_H
set -eu
source=$1
build=$2
halide=$3
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

# HalideRuntime.h may come before, after, or not at all.
own='#include <diffusefilt_halide.h>'
records='#include <HalideRuntime.h>'
for compiler in gcc clang; do
    command -v "$compiler" >"$work/log" || continue
    for language in 'c -std=c99' 'c++ -std=c++17'; do
        for lines in "$own" "$own\n$own" "-I$halide $own" "-I$halide $records\n$own" "-I$halide $own\n$records"; do
            folder=${lines%%#*}
            # shellcheck disable=SC2059,SC2086
            printf "${lines#"$folder"}\n" |
                "$compiler" -x $language $strict $flags $folder -fsyntax-only -
        done
    done
    for folder in '' "-I$halide"; do
        # shellcheck disable=SC2086
        echo '#include <diffusefilt_halide.hpp>' |
            "$compiler" -x c++ -std=c++17 $strict $flags $folder -fsyntax-only -
    done
done

# The declarations of our own beside those of HalideRuntime.h: the compiler compares the types of
# two objects when it links them.
own_header=$(find ../moved -name diffusefilt_halide_records.h)
{
    echo "$own"
    echo 'const void* functions[] = {'
    grep -o 'halide_[a-z_]*(' "$own_header" | sort -u | sed 's/\(.*\)(/(const void*)\1,/'
    echo '};'
    for record in $(sed -n 's/^\(typedef \)\{0,1\}struct \(halide_[a-z_]*\) {/\2/p' "$own_header"); do
        echo "$record a_$record;"
    done
    echo 'halide_argument_kind_t kind;'
} >ours.cpp
[ "$(grep -c halide_ ours.cpp)" -gt 25 ] || { echo "the declarations were not found" && exit 1; }
{ sed 's/ functions\[/ their_functions[/; s/ a_/ b_/; s/ kind;/ their_kind;/' ours.cpp && echo 'int main() {}'; } >theirs.cpp
# shellcheck disable=SC2086
{
    c++ -std=c++17 -flto -c ours.cpp $flags
    c++ -std=c++17 -flto -c theirs.cpp $flags -I"$halide"
    c++ -flto -Werror -Wodr -Wlto-type-mismatch ours.o theirs.o $libs -o both
}
