# SPDX-License-Identifier: LicenseRef-Tarnix
# Shared by the scripts: packages, builds and directories. Sets $root, the root of the tree.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

build_packages=(cmake ninja-build g++ pkg-config libace-dev libicu-dev icu-devtools libxerces-c-dev
    libpam0g-dev openssl)
test_packages=(libgtest-dev libgmock-dev libssl-dev locales libclang-rt-14-dev x11proto-dev)
bench_packages=(libbenchmark-dev libssl-dev libglib2.0-dev libpoco-dev libboost-dev libboost-filesystem-dev
    libspdlog-dev python3 valgrind)
check_packages=(clang-14 clang-format-14 clang-tidy-14 clang-tools-14 llvm-14 python3) # llvm-14 has the symbolizer of the sanitizers
package_packages=(clang-14 make dpkg-dev file lintian)

# Installs the named packages that are missing. Needs root only for that.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "missing packages; install them as root: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}"
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" >/dev/null
}

# build PRESET [cmake option ...]: configures and builds all, or the target $TARNIX_TARGET, into
# build/PRESET. In CI warnings are errors.
build() {
    local preset=$1 log
    shift
    [ -z "${CI:-}" ] || set -- -DTARNIX_WERROR=ON "$@"
    mkdir -p build
    log=build/$preset.log
    if ! cmake --preset "$preset" "$@" >"$log" 2>&1 ||
        ! cmake --build --preset "$preset" --target "${TARNIX_TARGET:-all}" >>"$log" 2>&1; then
        tail -n 60 "$log" >&2
        echo "cannot build preset $preset; the whole output is in $log" >&2
        exit 1
    fi
}

# The build that is packaged, with the debug information that has a package of its own. The arguments are
# options of cmake. Packages are the same bit by bit. So no compiler cache: it writes the names of sources
# relative to the build. And no precompiled header: its place in memory, which changes with each start of the
# compiler, changed the debug information of an object in one of ten builds.
package_tree=build/package-tree
configure_package_tree() {
    cmake --preset release -B "$package_tree" "-DCMAKE_CXX_FLAGS_RELEASE=-O3 -DNDEBUG -g" \
        -DTARNIX_BUILD_TESTS=OFF -DTARNIX_BUILD_EXAMPLES=OFF -DCMAKE_CXX_COMPILER_LAUNCHER= \
        -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON "$@"
}
