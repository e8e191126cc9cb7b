# shellcheck shell=bash disable=SC2034
# tools/prepare.sh - sourced in the project's folder by every script that builds or checks
# something, after `set -e`: installs missing packages, and runs steps whose output only matters
# when they fail.

# The Debian packages by purpose. This is the only list of them. The first is all that ./demo and
# ./test need, and what every other purpose needs as well.
packages=(abigail-tools cmake e2fsprogs g++ gdb git libcli11-dev libgtest-dev libssl-dev mandoc
    ninja-build nlohmann-json3-dev pkg-config python3 python3-cryptography spin strace valgrind
    xfsprogs)
packages_check=(ansible-core clang-14 clang-format-14 shellcheck)
packages_analyse=(clang-14 clang-tidy-14 cppcheck)
packages_fuzz=(clang-14 libclang-rt-14-dev llvm-14)
packages_afl=(afl++ clang-14 libclang-rt-14-dev llvm-14)
packages_bare_machine=(debootstrap python3)
packages_portability=(dpkg-dev qemu-user)
packages_coverage=(gcovr)
packages_package=(bash-completion dpkg-dev faketime file lintian locales man-db rpm systemd
    systemd-container)
packages_machine=(e2fsprogs mmdebstrap qemu-system-x86 swtpm xfsprogs)
packages_bench=(hyperfine libbenchmark-dev)
packages_peers=(libglib2.0-dev mawk)
packages_fips=(dpkg-dev g++ make openssl perl)

# Settings of the caller's own must not reach a run of the command.
unset ZTS_KEYSTORE_CONF ZTS_VEKCRED_KEYFILE ZTS_TRACE

# announce WHAT LOG
announce() {
    printf '%(%H:%M:%S)T  %s  (%s)\n' -1 "$1" "$2" >&2
}

# step WHAT NAME COMMAND... runs COMMAND with its output in build/log/NAME.log, after a line that
# says so. If COMMAND fails, that output is shown and the script ends. A function as COMMAND ends at
# its first failure, which it would not do as the condition of an "if".
step() {
    local what=$1 log=build/log/$2.log status
    shift 2
    mkdir -p build/log
    announce "$what" "$log"
    set +e
    (set -e; "$@") >"$log" 2>&1 </dev/null
    status=$?
    set -e
    if ((status != 0)); then
        cat "$log" >&2
        printf '%s: failed with status %d: %s\n' "$0" "$status" "$*" >&2
        exit 1
    fi
}

# install_packages PACKAGE... installs those that are missing, as root or through sudo, which may
# ask for a password on the terminal.
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
        as_root=(sudo)
    fi
    if ! "${as_root[@]}" apt-get --version >/dev/null; then
        printf '%s: cannot install packages here; as root, run: apt-get install %s\n' \
            "$0" "${missing[*]}" >&2
        exit 1
    fi
    # shellcheck disable=SC2016 # The shell that is called expands this.
    step "Installing ${missing[*]}" packages "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        sh -ec 'apt-get -q update; apt-get -q -y install --no-install-recommends "$@"' sh \
        "${missing[@]}"
}

# debian_mirror prints where this machine gets Debian's packages from.
debian_mirror() {
    # shellcheck disable=SC2016 # apt-get expands this.
    apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Component: main' \
        'Label: Debian' |
        head -n 1
}

# build_preset PRESET [OPTION...] configures build/PRESET, with the options of cmake, and builds it.
build_preset() {
    local preset=$1
    shift
    step "Configuring build/$preset" "$preset-configure" cmake --preset "$preset" "$@"
    step "Building build/$preset" "$preset-build" cmake --build --preset "$preset" -- --quiet
}

# run_tests PRESET [OPTION...] runs the tests in build/PRESET, with the options of ctest, and prints
# its closing lines; when tests fail it shows what they said and ends the script. With an option
# that asks for more to be seen, such as -V, it prints all that ctest does.
run_tests() {
    local preset=$1 log=build/log/$1-tests.log status=0
    local tests=(ctest --preset "$1" -j "$(nproc)" "${@:2}")
    mkdir -p build/log
    announce "Running the tests in build/$preset" "$log"
    case " ${*:2} " in
    *' -'[VN]* | *' --'*)
        "${tests[@]}" 2>&1 </dev/null | tee "$log"
        ;;
    *)
        "${tests[@]}" >"$log" 2>&1 </dev/null || status=$?
        if ((status != 0)); then
            grep -vE '^ +Start +[0-9]+: |   Passed  ' "$log" >&2
            exit 1
        fi
        sed -n '/ tests passed, /,$p' "$log"
        ;;
    esac
}
