#!/usr/bin/env bash
# Installs the library and uses it from another project (consumer/). CTest runs one step at a time:
#   install_test.sh install SCRATCH BUILD CONFIG     installs into an empty prefix, and moves that
#   install_test.sh cmake SCRATCH COMPILER STANDARD
#   install_test.sh pkgconfig SCRATCH COMPILER STANDARD
#   install_test.sh refusals SCRATCH COMPILER        what find_package must refuse, and what it must not need
#   install_test.sh own_allocator SCRATCH COMPILER
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)
step=$1
scratch=$2
root=$scratch/moved
export CMAKE_PREFIX_PATH=$root
export HX_PRODUCT_HOME=$root/share/brimportable
unset LD_LIBRARY_PATH

fail() { echo "FAILED: $*" >&2; exit 1; }
library_dir() { dirname "$(find "$root" -name libbrimportable.so)"; }

# A fresh build directory, configured with the consumer: configure NAME COMPILER [CMAKE-ARGUMENT...]
configure() {
  rm -rf "${scratch:?}/$1"
  cmake -S "$here/consumer" -B "$scratch/$1" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER="$2" "${@:3}"
}

refuses() { # EXPECTED-TEXT [CMAKE-ARGUMENT...]
  local log=$scratch/refusal.log
  if configure refusal "$compiler" "${@:2}" >"$log" 2>&1; then
    fail "accepted: ${*:2}"
  fi
  tr -s '\n ' ' ' <"$log" | grep -qF -- "$1" || { cat "$log"; fail "without the words: $1"; }
}

runs_as() { # STANDARD PROGRAM
  local output
  output=$("$2") || fail "$output"
  [[ $output == *"C++$1, "* ]] || fail "not C++$1: $output"
}

needs_xerces() { readelf -d "$1" | grep -q 'NEEDED.*xerces'; }

case $step in
  install)
    tree=$3
    rm -rf "$scratch"
    cmake --install "$tree" --config "$4" --prefix "$scratch/prefix" >/dev/null
    mv "$scratch/prefix" "$root"

    diff <(cd "$source_dir/server/include" && find . -name '*.h' | sort) \
      <(cd "$root/include" && find . -name '*.h' ! -name fenmemoryallocator864.h | sort) ||
      fail "the installed headers are not the public ones"
    [ -f "$root/include/fenmemoryallocator864.h" ] || fail "no header of the allocator library"
    [ -f "$HX_PRODUCT_HOME/hxfoundation/server/locale/BrimLocale.xml" ] || fail "no locale file"
    if grep -rlI -e "$tree" -e "$source_dir" -e "$scratch" "$root"; then
      fail "these name the tree that built them"
    fi
    while read -r file; do
      path=$(readelf -d "$file" | sed -nE 's/.*\((RUNPATH|RPATH)\).*\[(.*)\]/\2/p')
      [[ -z $path || $path == '$ORIGIN' || $path == '$ORIGIN/../'* ]] || fail "$file looks for libraries in $path"
    done < <(find "$root" -type f \( -name 'lib*.so*' ! -name '*.py' -o -path '*/bin/*' \))
    ;;
  cmake)
    name=cmake-$3-$4
    configure "$name" "$3" -DCMAKE_CXX_STANDARD="$4" -DCONSUMER_WITH_XML=ON
    cmake --build "$scratch/$name"
    runs_as "$4" "$scratch/$name/program"
    "$scratch/$name/with_xml"
    grep -q "product home: $HX_PRODUCT_HOME" <(cmake "$scratch/$name") || fail "another product home is told"
    ;;
  pkgconfig)
    export PKG_CONFIG_PATH PKG_CONFIG_LIBDIR
    PKG_CONFIG_PATH=$(library_dir)/pkgconfig
    HX_PRODUCT_HOME=$(pkg-config --variable=producthome brimportable)
    [ "$(pkg-config --modversion brimportable)" = "$(sed -nE 's/.*PACKAGE_VERSION "(.*)".*/\1/p;T;q' \
      "$(library_dir)/cmake/brimportable/brimportableConfigVersion.cmake")" ] || fail "two versions are told"
    warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
    build() { # PROGRAM MODULE
      local flags
      read -ra flags <<<"$(pkg-config --cflags --libs "$2")"
      "$compiler" -std="c++$standard" "${warnings[@]}" "$here/consumer/$1.cpp" -o "$scratch/pc-$compiler-$standard-$1" \
        "${flags[@]}"
    }
    compiler=$3
    standard=$4
    build program brimportable
    build with_xml brimportable-xml
    export LD_LIBRARY_PATH
    LD_LIBRARY_PATH=$(library_dir)
    runs_as "$standard" "$scratch/pc-$compiler-$standard-program"
    "$scratch/pc-$compiler-$standard-with_xml"
    ;;
  refusals)
    compiler=$3
    refuses 'compatible with requested version "2.0"' -DCONSUMER_VERSION=2.0
    refuses 'compatible with requested version "1.99"' -DCONSUMER_VERSION=1.99
    refuses 'compatible with requested version "0.9"' -DCONSUMER_VERSION=0.9
    refuses 'The component xml needs Xerces-C++' -DCONSUMER_WITH_XML=ON -DCMAKE_DISABLE_FIND_PACKAGE_XercesC=ON
    # Who does not ask for xml needs no Xerces.
    configure plain "$compiler" -DCMAKE_DISABLE_FIND_PACKAGE_XercesC=ON
    cmake --build "$scratch/plain"
    "$scratch/plain/program"
    ! needs_xerces "$scratch/plain/program" || fail "the program is linked with Xerces"
    ;;
  own_allocator)
    configure own "$3"
    cmake --build "$scratch/own"
    output=$(LD_LIBRARY_PATH=$scratch/own/own "$scratch/own/program")
    echo "$output"
    # The program itself was linked with the installed one's place in its RUNPATH, which comes after this one.
    grep -qF 'own allocator: asked' <<<"$output" || fail "the installed allocator library was used"
    ;;
  *) fail "no such step: $step" ;;
esac
