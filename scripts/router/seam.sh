# shellcheck shell=bash
# The daemon linked to the example firmware library, below the directory given. Sourced by what builds it here or for a target.

# build_seam DIRECTORY [CMAKE_OPTION...]
build_seam() {
  local build=$1
  shift
  cmake -S examples/firmware -B "$build/firmware" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel "$@" >/dev/null
  cmake --build "$build/firmware" -j2 >/dev/null
  cmake -S . -B "$build/daemon" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DBUILD_TESTING=OFF -DAPPIDENT_BENCH=OFF \
    -DAPPIDENT_PLATFORM_LIBRARY="$build/firmware/libfirmware.so" "$@" >/dev/null
  cmake --build "$build/daemon" --target appident -j2 >/dev/null
}

# check_seam DIRECTORY NM: the library offers the operations of igd_lib.h and nothing else, and no object of platform/linux was
# built into the daemon.
check_seam() {
  local build=$1 nm=$2 offered declared
  offered=$("$nm" -D --defined-only "$build/firmware/libfirmware.so" | awk '$2 == "T" && $3 !~ /^_(init|fini)$/ { print $3 }' | sort)
  declared=$(grep -v '^typedef' include/igd/igd_lib.h | sed -n 's/^[a-z].*[ *]\([a-z_0-9]*\)(.*);.*/\1/p' | sort)
  if [[ $offered != "$declared" ]]; then
    diff <(echo "$declared") <(echo "$offered")
    return 1
  fi
  if [[ -n $(find "$build/daemon" -path '*platform*' -name '*.o') ]]; then
    echo "platform/linux was built for a firmware" >&2
    return 1
  fi
}
