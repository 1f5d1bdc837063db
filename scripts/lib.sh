# What the scripts share; sourced, not run. Defines the project's root as ROOT and goes there.

set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$ROOT"

BUILD_PACKAGES=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev libgtest-dev libbenchmark-dev)
TEST_PACKAGES=(python3 unicode-data)
BENCH_PACKAGES=(libsqlite3-dev liblmdb-dev valgrind)  # the benchmark alone
CHECK_PACKAGES=(clang libclang-rt-14-dev clang-format)
# For other machines. The cross compilers and g++-multilib exclude each other.
PORTABLE_PACKAGES=(g++-s390x-linux-gnu g++-i686-linux-gnu qemu-user googletest)

# Parallel jobs of builds and test runs; set JOBS to share a machine.
JOBS=${JOBS:-$(nproc)}

# Prints those of the packages that are not installed.
missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || echo "$package"
    done
}

# Installs the packages that are missing. Silent, and without any network, when none is.
ensure_packages() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "missing packages, and neither root nor sudo" >&2; return 1; }
        sudo=(sudo)
    fi
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# build PRESET [TARGET...]: configures and builds; quiet but for the build's own progress.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" >"/tmp/hive-configure.$$" 2>&1 || { cat "/tmp/hive-configure.$$"; rm -f "/tmp/hive-configure.$$"; return 1; }
    rm -f "/tmp/hive-configure.$$"
    cmake --build --preset "$preset" -j "$JOBS" ${1:+--target "$@"}
}
