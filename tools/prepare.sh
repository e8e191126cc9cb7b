# shellcheck shell=bash disable=SC2034
# tools/prepare.sh - sourced by ./demo, ./test, bench/run and .ci/run, in the project's folder: installs
# missing packages and runs steps whose output only matters when they fail.

# The Debian packages by purpose. This is the only list of them.
packages_build=(cmake g++ libssl-dev ninja-build)
packages_test=(abigail-tools gdb libgtest-dev mandoc pkg-config python3 python3-cryptography strace)
packages_check=(ansible-core clang-14 clang-format-14 git shellcheck)
packages_analyse=(clang-14 clang-tidy-14 cppcheck)
packages_fuzz=(clang-14 libclang-rt-14-dev llvm-14)
packages_coverage=(gcovr)
packages_package=(dpkg-dev file lintian)
packages_bench=(hyperfine libbenchmark-dev pkg-config)
packages_peers=(libglib2.0-dev libinih-dev mawk)
packages_fips=(dpkg-dev g++ make openssl perl)

# Settings of the caller's own must not reach a run of the command.
unset ZTS_KEYSTORE_CONF ZTS_VEKCRED_KEYFILE ZTS_TRACE

# quietly NAME COMMAND... runs COMMAND with its output in build/log/NAME.log and shows that output only
# if the command fails, which ends the script.
quietly() {
    local log=build/log/$1.log
    shift
    mkdir -p build/log
    if "$@" >"$log" 2>&1 </dev/null; then
        return
    fi
    cat "$log" >&2
    printf '%s: failed: %s\n' "$0" "$*" >&2
    exit 1
}

# install_packages PACKAGE... installs those that are missing, as root or through sudo.
install_packages() {
    local package missing=() as_root=()
    for package in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null) == installed* ]] ||
            missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    if ((EUID != 0)); then
        as_root=(sudo -n)
    fi
    if ! "${as_root[@]}" apt-get --version >/dev/null 2>&1; then
        printf '%s: cannot install packages here; as root, run: apt-get install %s\n' \
            "$0" "${missing[*]}" >&2
        exit 1
    fi
    printf 'installing %s\n' "${missing[*]}" >&2
    quietly packages-update "${as_root[@]}" apt-get -q update
    quietly packages "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y install --no-install-recommends "${missing[@]}"
}

# build_preset PRESET [OPTION...] configures build/PRESET, with the options of cmake, and builds it.
build_preset() {
    local preset=$1
    shift
    quietly "$preset-configure" cmake --preset "$preset" "$@"
    quietly "$preset-build" cmake --build --preset "$preset" -- --quiet
}

# run_tests PRESET [OPTION...] runs the tests in build/PRESET, with the options of ctest, and prints its
# closing lines; when tests fail it shows what they said and ends the script.
run_tests() {
    local preset=$1 log=build/log/$1-tests.log
    shift
    if ctest --preset "$preset" -j "$(nproc)" "$@" >"$log" 2>&1 </dev/null; then
        sed -n '/ tests passed, /,$p' "$log"
        return
    fi
    grep -vE '^ +Start +[0-9]+: |   Passed  ' "$log" >&2
    exit 1
}
