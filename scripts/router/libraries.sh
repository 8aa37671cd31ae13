# shellcheck shell=bash disable=SC2154 # the variables come from scripts/router-build
# The libraries a target's daemon and tests link to, put into that target's root once. Sourced by scripts/router-build, which
# sets $router (the directory of all this) and $downloads.

# build_libnl ROOT TRIPLET COMPILER: the core library and the routing one, from Debian's source.
build_libnl() {
  local root=$1 triplet=$2 compiler=$3 work
  work=$(mktemp -d -p "$router")
  cp -r "$(source_package libnl3)/." "$work"
  (
    cd "$work" || exit
    [[ -x configure ]] || autoreconf -fi
    CC=$compiler CFLAGS='-Os -w' ./configure --quiet --host="$triplet" --prefix=/usr --sysconfdir=/etc --disable-cli --disable-static
    make -s -j2 lib/libnl-3.la lib/libnl-route-3.la >make.log 2>&1 || { tail -40 make.log; exit 1; }
    mkdir -p "$root/usr/include" "$root/usr/lib/pkgconfig"
    cp -P lib/.libs/libnl-3.so* lib/.libs/libnl-route-3.so* "$root/usr/lib/"
    cp -r include "$root/usr/include/libnl3"
    cp libnl-3.0.pc libnl-route-3.0.pc "$root/usr/lib/pkgconfig/"
  )
  rm -r "$work"
}

# build_cjson ROOT COMPILER: the library's single file, from Debian's source.
build_cjson() {
  local root=$1 compiler=$2 source
  source=$(source_package cjson)
  mkdir -p "$root/usr/include/cjson" "$root/usr/lib/pkgconfig"
  "$compiler" -Os -fPIC -shared -Wl,-soname,libcjson.so.1 -o "$root/usr/lib/libcjson.so.1" "$source/cJSON.c" -lm
  ln -sf libcjson.so.1 "$root/usr/lib/libcjson.so"
  cp "$source/cJSON.h" "$root/usr/include/cjson/"
  cat >"$root/usr/lib/pkgconfig/libcjson.pc" <<'PC'
prefix=/usr
Name: libcjson
Description: JSON parser
Version: 1.7.15
Libs: -L${prefix}/lib -lcjson
Cflags: -I${prefix}/include
PC
}

# The commands of the compiler that carries musl, under names a build system can use.
write_musl_tools() {
  local root=$1 zig tool
  zig=$(fetch_zig)
  mkdir -p "$root/bin"
  for tool in cc c++; do
    # -dynamic: this compiler links musl statically unless told otherwise.
    printf '#!/bin/sh\nexport ZIG_GLOBAL_CACHE_DIR=%q ZIG_LOCAL_CACHE_DIR=%q\nexec %q %s -target mipsel-linux-musl -dynamic "$@"\n' \
      "$downloads/zig/cache" "$downloads/zig/cache" "$zig" "$tool" >"$root/bin/mipsel-linux-musl-$tool"
  done
  for tool in ar ranlib; do
    printf '#!/bin/sh\nexec %q %s "$@"\n' "$zig" "$tool" >"$root/bin/mipsel-linux-musl-$tool"
  done
  chmod +x "$root"/bin/*
}

build_googletest() {
  local root=$1 target=$2
  cmake -S /usr/src/googletest -B "$root/googletest" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DBUILD_GMOCK=OFF \
    -DCMAKE_TOOLCHAIN_FILE="$toolchains/$target.cmake" -DAPPIDENT_TARGET_ROOT="$root" -DCMAKE_INSTALL_PREFIX="$root/usr" \
    -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
  cmake --build "$root/googletest" --target install -j2 >/dev/null
}

# prepare_target TARGET ROOT
prepare_target() {
  local target=$1 root=$2 packages=(libnl-3-200 libnl-3-dev libnl-route-3-200 libnl-route-3-dev libcjson1 libcjson-dev)
  [[ -e $root/ready ]] && return
  echo "router-build: preparing the libraries of $target"
  rm -rf "$root"
  mkdir -p "$root" "$downloads"
  case $target in
    armhf*) fetch_packages "$root" "${packages[@]/%/:armhf}" ;;
    mipsel) fetch_packages "$root" "${packages[@]/%/:mipsel}" ;;
    mips)
      build_libnl "$root" mips-linux-gnu mips-linux-gnu-gcc
      build_cjson "$root" mips-linux-gnu-gcc
      ;;
    mipsel-musl)
      write_musl_tools "$root"
      fetch_packages "$root" musl:mipsel
      build_libnl "$root" mipsel-linux-musl "$root/bin/mipsel-linux-musl-cc"
      build_cjson "$root" "$root/bin/mipsel-linux-musl-cc"
      ;;
  esac
  build_googletest "$root" "$target"
  touch "$root/ready"
}

# prepare_feed ROOT ARCHITECTURE: the libraries of appident-feed, and what those need at run time, where Debian has them.
prepare_feed() {
  local root=$1 packages=(libpcap0.8 libpcap0.8-dev libssl3 libssl-dev libdbus-1-3 libdbus-1-dev libsystemd0 libcap2 libgcrypt20
    libgpg-error0 liblz4-1 liblzma5 libzstd1)
  [[ -e $root/feed-ready ]] && return
  fetch_packages "$root" "${packages[@]/%/:$2}"
  touch "$root/feed-ready"
}
