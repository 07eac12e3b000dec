#!/usr/bin/env bash
# Builds static OpenSSL, PCRE2 (8- and 16-bit, with JIT) and libdeflate for a
# mingw-w64 target from the upstream tarballs of Debian's source packages.
#
#   scripts/build-mingw-deps.sh x86_64-w64-mingw32|i686-w64-mingw32
#
# The last line on stdout is the install prefix; everything else goes to
# stderr.  Prefixes live in a cache outside the work tree:
#
#   ${SYSTEM_REPORT_DEPS_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/system-report-deps}
#       /<triplet>-openssl-<v>_pcre2-<v>_libdeflate-<v>-r<recipe>
#
# A new Debian upload of any of the three, or a bump of RECIPE_REVISION (do
# that whenever the build flags below change), gives a new directory, so an
# old prefix is never silently reused with other flags.  A prefix counts as
# built only if it holds the stamp file; prefixes are assembled in a staging
# directory, verified, stamped and only then renamed into place, so a killed
# build never leaves something that looks complete.
set -euo pipefail

RECIPE_REVISION=1
STAMP=.build-complete

prog="build-mingw-deps"
exec 3>&1 4>&2      # 3: the result line, 4: progress (the build log takes 1/2)
say() { printf '%s: %s\n' "$prog" "$*" >&4; }
die() { say "error: $*"; exit 1; }

[[ $# -eq 1 ]] || die "usage: $0 x86_64-w64-mingw32|i686-w64-mingw32"
triplet=$1
case $triplet in
    x86_64-w64-mingw32) openssl_target=mingw64 cpu=x86_64 ;;
    i686-w64-mingw32)   openssl_target=mingw   cpu=i686 ;;
    *) die "unknown triplet '$triplet'" ;;
esac

cache_root=${SYSTEM_REPORT_DEPS_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/system-report-deps}
as_root() { if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi; }
apt_get() { as_root apt-get -o DPkg::Lock::Timeout=900 "$@"; }

# Another job on a fresh machine may still be installing the toolchain; its
# log ends with a "done <status>" line.  Whatever it did not install is
# installed below.
wait_for_parallel_apt() {
    local log=/tmp/apt-install.log waited=0
    [[ -e $log ]] || return 0
    until tail -n1 "$log" | grep -q '^done'; do
        pgrep -x 'apt-get|apt|dpkg' >/dev/null || return 0
        ((waited % 60)) || say "waiting for the package installation logged in $log"
        sleep 5; waited=$((waited + 5))
        ((waited < 1800)) || { say "gave up waiting for $log"; return 0; }
    done
}

ensure_tools() {
    local missing=()
    for tool in gcc-posix g++-posix ar ranlib windres; do
        command -v "$triplet-$tool" >/dev/null || missing+=("$tool")
    done
    if ((${#missing[@]})); then
        say "installing the mingw-w64 toolchain (missing: ${missing[*]})"
        apt_get install -y --no-install-recommends \
            "g++-mingw-w64-${cpu/_/-}-posix" binutils-mingw-w64 >&4
    fi
    command -v dpkg-source >/dev/null || apt_get install -y --no-install-recommends dpkg-dev >&4
    for tool in cmake make perl pkg-config; do
        command -v "$tool" >/dev/null || apt_get install -y --no-install-recommends "${tool/pkg-config/pkgconf}" >&4
    done
}

has_deb_src() {
    grep -qsE '^[[:space:]]*(deb-src[[:space:]]|Types:.*deb-src)' \
        /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources
}

# apt-get source needs deb-src entries; mirror the existing deb ones.
ensure_deb_src() {
    has_deb_src && return 0
    say "adding deb-src entries for the configured Debian archives"
    if [[ -f /etc/apt/sources.list.d/debian.sources ]]; then
        sed -E 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources |
            as_root tee /etc/apt/sources.list.d/debian-src.sources >/dev/null
    elif grep -qsE '^deb[[:space:]]' /etc/apt/sources.list; then
        sed -nE 's/^deb([[:space:]])/deb-src\1/p' /etc/apt/sources.list |
            as_root tee /etc/apt/sources.list.d/debian-src.list >/dev/null
    else
        die "no Debian apt sources found to derive deb-src entries from"
    fi
    apt_get update >&4
}

# Upstream version of the .orig tarball that 'apt-get source' would fetch,
# read from the output of 'apt-get source --print-uris'.
upstream_version() {
    local pkg=$1 file
    file=$(grep -oE "'[^']*/${pkg}_[^/']*\.orig\.tar\.[a-z0-9]+'" <<<"$source_uris" | head -n1) ||
        die "apt-get source knows no .orig tarball for $pkg"
    file=${file##*/}
    file=${file#"${pkg}_"}
    printf '%s\n' "${file%%.orig.tar.*}"
}

# Fetches and unpacks the .orig tarball; prints the source directory.  A
# security-pocket upload whose .dsc fails verification still delivers the
# tarball, which is all that is used here.
fetch_source() {
    local pkg=$1 version=$2 tarball
    local dir=$scratch/src/$pkg
    mkdir -p "$dir"
    (cd "$dir" && apt-get source --download-only --only-source "$pkg") >&2 ||
        say "apt-get source $pkg reported a failure; looking for the tarball anyway"
    tarball=$(find "$dir" -maxdepth 1 -name "${pkg}_${version}.orig.tar.*" ! -name '*.asc' | head -n1)
    [[ -n $tarball ]] || die "no ${pkg}_${version}.orig.tar.* was downloaded"
    mkdir "$dir/tree"
    tar -xf "$tarball" -C "$dir/tree" --strip-components=1
    printf '%s\n' "$dir/tree"
}

write_toolchain_file() {
    cat >"$scratch/toolchain.cmake" <<EOF
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR $cpu)
set(CMAKE_C_COMPILER $triplet-gcc-posix)
set(CMAKE_CXX_COMPILER $triplet-g++-posix)
set(CMAKE_RC_COMPILER $triplet-windres)
set(CMAKE_AR $triplet-ar)
set(CMAKE_RANLIB $triplet-ranlib)
set(CMAKE_FIND_ROOT_PATH /usr/$triplet)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
EOF
}

# Everything is configured for the final prefix and installed with DESTDIR
# into the staging directory, so paths inside .pc files are already right.
cmake_build() {
    local src=$1 build=$2; shift 2
    cmake -S "$src" -B "$build" -G "Unix Makefiles" \
        -DCMAKE_TOOLCHAIN_FILE="$scratch/toolchain.cmake" \
        -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$prefix" \
        -DCMAKE_INSTALL_LIBDIR=lib \
        "$@"
    cmake --build "$build" -j "$jobs"
    DESTDIR=$staging cmake --install "$build"
}

build_openssl() {
    local src
    src=$(fetch_source openssl "$openssl_version")
    # These directories are compiled into libcrypto and read by the shipped
    # program on the user's machine (openssl.cnf, the default CA store,
    # provider modules).  Derived from --prefix they would be a Linux cache
    # path, i.e. C:\root\... on Windows, which any local user can create and
    # fill.  Configure treats a "C:/..." --openssldir as relative when run on
    # Linux, so set them on the make command line instead.  no-dso and
    # no-autoload-config keep OpenSSL from loading DLLs or a config file at all.
    local ssl_dir="C:/Program Files/Common Files/SSL"
    local dirs=("OPENSSLDIR=$ssl_dir" "ENGINESDIR=$ssl_dir/engines-3" "MODULESDIR=$ssl_dir/ossl-modules")
    (cd "$src" &&
        CC=$triplet-gcc-posix CXX=$triplet-g++-posix AR=$triplet-ar \
        RANLIB=$triplet-ranlib RC=$triplet-windres \
        ./Configure "$openssl_target" --prefix="$prefix" --libdir=lib \
            no-shared no-tests no-legacy no-engine no-module no-dso \
            no-autoload-config &&
        make -j"$jobs" "${dirs[@]}" build_libs &&
        make "${dirs[@]}" DESTDIR="$staging" install_dev)
}

build_pcre2() {
    local src
    src=$(fetch_source pcre2 "$pcre2_version")
    cmake_build "$src" "$scratch/build/pcre2" \
        -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON \
        -DPCRE2_BUILD_PCRE2_8=ON -DPCRE2_BUILD_PCRE2_16=ON \
        -DPCRE2_SUPPORT_JIT=ON \
        -DPCRE2_BUILD_TESTS=OFF -DPCRE2_BUILD_PCRE2GREP=OFF
    sed -i -E 's/^Cflags:.*/& -DPCRE2_STATIC/' "$staging$prefix"/lib/pkgconfig/libpcre2-*.pc
    rm -rf "$staging$prefix/man" "$staging$prefix/share/doc/pcre2"
    rmdir --ignore-fail-on-non-empty "$staging$prefix/share"
}

# Upstream's Makefile names a mingw static library libdeflatestatic.lib and
# builds the DLL and programs by default; only the library is wanted.
build_libdeflate() {
    local src
    src=$(fetch_source libdeflate "$libdeflate_version")
    make -C "$src" -j"$jobs" CC="$triplet-gcc-posix" AR="$triplet-ar" \
        libdeflatestatic.lib
    install -D -m644 "$src/libdeflatestatic.lib" "$staging$prefix/lib/libdeflate.a"
    install -D -m644 "$src/libdeflate.h" "$staging$prefix/include/libdeflate.h"
    mkdir -p "$staging$prefix/lib/pkgconfig"
    cat >"$staging$prefix/lib/pkgconfig/libdeflate.pc" <<EOF
prefix=$prefix
Name: libdeflate
Description: whole-buffer DEFLATE compression
Version: $libdeflate_version
Libs: -L\${prefix}/lib -ldeflate
Cflags: -I\${prefix}/include
EOF
}

timed() {
    local name=$1 start=$SECONDS
    say "building $name"
    "build_$name"
    say "$name built in $((SECONDS - start))s"
}

find_wine() {
    [[ $triplet == x86_64-w64-mingw32 ]] || return 1
    command -v wine64 && return 0
    [[ -x /usr/lib/wine/wine64 ]] && { echo /usr/lib/wine/wine64; return 0; }
    command -v wine
}

# Links one program per library statically against the staged prefix and,
# where Wine is available, runs them: the checks inside fail on a broken
# provider setup in the static libcrypto or on a JIT that does not execute.
verify() {
    local root=$staging$prefix dir=$scratch/verify wine
    mkdir -p "$dir"
    cat >"$dir/openssl.c" <<'EOF'
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <stdio.h>
#include <string.h>
int main(void) {
    static const unsigned char want[32] = {
        0xba,0x78,0x16,0xbf,0x8f,0x01,0xcf,0xea,0x41,0x41,0x40,0xde,0x5d,0xae,0x22,0x23,
        0xb0,0x03,0x61,0xa3,0x96,0x17,0x7a,0x9c,0xb4,0x10,0xff,0x61,0xf2,0x00,0x15,0xad};
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    SSL_CTX *ctx = SSL_CTX_new(TLS_client_method());
    if (!ctx || !EVP_Digest("abc", 3, md, &len, EVP_sha256(), NULL)
        || len != 32 || memcmp(md, want, 32) != 0) {
        puts("openssl: FAILED");
        return 1;
    }
    SSL_CTX_free(ctx);
    printf("openssl: ok %s\n", OpenSSL_version(OPENSSL_VERSION));
    return 0;
}
EOF
    cat >"$dir/pcre2.c" <<'EOF'
#define PCRE2_CODE_UNIT_WIDTH 0
#include <pcre2.h>
#include <stdio.h>
static int check8(void) {
    int err; PCRE2_SIZE off; uint32_t jit = 0; int rc;
    pcre2_code_8 *re = pcre2_compile_8((PCRE2_SPTR8)"b(\\d+)c", PCRE2_ZERO_TERMINATED, 0, &err, &off, NULL);
    pcre2_match_data_8 *md;
    if (!re || pcre2_config_8(PCRE2_CONFIG_JIT, &jit) < 0 || !jit) return 0;
    if (pcre2_jit_compile_8(re, PCRE2_JIT_COMPLETE) != 0) return 0;
    md = pcre2_match_data_create_from_pattern_8(re, NULL);
    /* pcre2_jit_match refuses to fall back to the interpreter. */
    rc = pcre2_jit_match_8(re, (PCRE2_SPTR8)"aab123cd", 8, 0, 0, md, NULL);
    return rc == 2 && pcre2_get_ovector_pointer_8(md)[2] == 3
        && pcre2_get_ovector_pointer_8(md)[3] == 6;
}
static int check16(void) {
    static const PCRE2_UCHAR16 pat[] = {'x', 0x20AC, '+', 0};
    static const PCRE2_UCHAR16 subj[] = {'a', 'x', 0x20AC, 0x20AC, 'b'};
    int err; PCRE2_SIZE off; int rc;
    pcre2_code_16 *re = pcre2_compile_16(pat, PCRE2_ZERO_TERMINATED, PCRE2_UTF, &err, &off, NULL);
    pcre2_match_data_16 *md;
    if (!re || pcre2_jit_compile_16(re, PCRE2_JIT_COMPLETE) != 0) return 0;
    md = pcre2_match_data_create_from_pattern_16(re, NULL);
    rc = pcre2_jit_match_16(re, subj, 5, 0, 0, md, NULL);
    return rc == 1 && pcre2_get_ovector_pointer_16(md)[0] == 1
        && pcre2_get_ovector_pointer_16(md)[1] == 4;
}
int main(void) {
    int ok8 = check8(), ok16 = check16();
    printf("pcre2: 8-bit jit %s, 16-bit jit %s\n", ok8 ? "ok" : "FAILED", ok16 ? "ok" : "FAILED");
    return ok8 && ok16 ? 0 : 1;
}
EOF
    cat >"$dir/libdeflate.c" <<'EOF'
#include <libdeflate.h>
#include <stdio.h>
#include <string.h>
int main(void) {
    static char text[100000], packed[110000], back[100000];
    struct libdeflate_compressor *c = libdeflate_alloc_compressor(6);
    struct libdeflate_decompressor *d = libdeflate_alloc_decompressor();
    size_t n, out = 0;
    for (n = 0; n < sizeof text; n++) text[n] = "system report "[n % 14] + (char)(n / 7000);
    n = c ? libdeflate_deflate_compress(c, text, sizeof text, packed, sizeof packed) : 0;
    if (!d || n == 0 || n > sizeof text / 10
        || libdeflate_deflate_decompress(d, packed, n, back, sizeof back, &out) != LIBDEFLATE_SUCCESS
        || out != sizeof text || memcmp(text, back, out) != 0
        || libdeflate_crc32(0, "abc", 3) != 0x352441c2u) {
        puts("libdeflate: FAILED");
        return 1;
    }
    puts("libdeflate: ok");
    return 0;
}
EOF
    # The cache path must not end up in what we ship (see build_openssl).
    if grep -lF -e "$prefix" -e "$scratch" "$root"/lib/*.a; then
        die "verify: a library embeds a build machine path"
    fi

    # Flags come from the installed .pc files, so those are tested too.
    link_test() {
        local exe=$1; shift
        local flags
        flags=$(PKG_CONFIG_LIBDIR=$root/lib/pkgconfig PKG_CONFIG_SYSROOT_DIR=$staging \
            pkg-config --static --cflags --libs "$@")
        # shellcheck disable=SC2086 # word splitting of $flags is intended
        "$triplet-gcc-posix" -static -O2 -Wall -Werror -o "$dir/$exe.exe" "$dir/$exe.c" $flags
    }
    link_test openssl openssl
    link_test pcre2 libpcre2-8 libpcre2-16
    link_test libdeflate libdeflate

    if ! wine=$(find_wine); then
        say "verify: test programs link (not run: no Wine for $triplet)"
        return 0
    fi
    local -A expect=(
        [openssl]="openssl: ok OpenSSL $openssl_version "
        [pcre2]="pcre2: 8-bit jit ok, 16-bit jit ok"
        [libdeflate]="libdeflate: ok")
    local exe out
    for exe in openssl pcre2 libdeflate; do
        out=$(WINEPREFIX=$scratch/wineprefix WINEDEBUG=-all "$wine" "$dir/$exe.exe" | tr -d '\r') ||
            die "verify: $exe.exe failed under Wine: $out"
        [[ $out == "${expect[$exe]}"* ]] || die "verify: unexpected output from $exe.exe: $out"
        say "verify: $out"
    done
}

main() {
    wait_for_parallel_apt
    ensure_tools
    ensure_deb_src
    source_uris=$(apt-get source --print-uris --only-source openssl pcre2 libdeflate 2>/dev/null) ||
        die "apt-get source --print-uris failed"
    openssl_version=$(upstream_version openssl)
    pcre2_version=$(upstream_version pcre2)
    libdeflate_version=$(upstream_version libdeflate)
    local key="$triplet-openssl-${openssl_version}_pcre2-${pcre2_version}_libdeflate-${libdeflate_version}-r$RECIPE_REVISION"
    prefix=$cache_root/$key

    mkdir -p "$cache_root"
    # Two callers asking for the same prefix build it once.
    exec 9>"$cache_root/.$key.lock"
    flock 9
    if [[ -f $prefix/$STAMP ]]; then
        say "reusing $prefix"
        printf '%s\n' "$prefix" >&3
        return 0
    fi

    # Left behind by a build of this key that was killed outright; the lock
    # says nobody is using them.
    rm -rf "$cache_root/.staging-$key".*

    jobs=$(nproc)
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/$prog.XXXXXX")
    staging=$(mktemp -d "$cache_root/.staging-$key.XXXXXX")
    log=$scratch/build.log
    trap on_exit EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    trap 'exit 129' HUP
    say "building $key (log: $log)"
    exec >"$log" 2>&1
    set -x

    write_toolchain_file
    local start=$SECONDS
    timed openssl
    timed pcre2
    timed libdeflate
    verify
    printf 'recipe %s\nopenssl %s\npcre2 %s\nlibdeflate %s\n' "$RECIPE_REVISION" \
        "$openssl_version" "$pcre2_version" "$libdeflate_version" >"$staging$prefix/$STAMP"
    rm -rf "$prefix"
    mv "$staging$prefix" "$prefix"
    set +x
    say "done in $((SECONDS - start))s: $prefix"
    printf '%s\n' "$prefix" >&3
}

on_exit() {
    local rc=$?
    set +x
    rm -rf "$staging"
    # Keep only the log of a failed build; the trees are large.
    find "$scratch" -mindepth 1 -maxdepth 1 ! -name build.log -exec rm -rf {} +
    if ((rc == 0)); then
        rm -rf "$scratch"
    else
        say "build failed (exit $rc); full log: $log"
        tail -n 40 "$log" >&4
    fi
}

main
