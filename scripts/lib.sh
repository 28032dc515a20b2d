# What the scripts share; sourced by them with "set -euo pipefail" in force.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '== %s\n' "$*"; }

# fail <message> [<what to do>]
fail() {
    printf 'error: %s\n' "$1" >&2
    [ $# -lt 2 ] || printf '       %s\n' "$2" >&2
    exit 1
}

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

is_available() { [ -n "$(apt-cache show --no-all-versions "$1" 2>/dev/null)" ]; }

# packages_of <set>...: lines of scripts/packages in these sets, without the set.
packages_of() {
    local line
    while read -r line; do
        case " $* " in *" ${line%%[[:space:]]*} "*) echo "${line#*[[:space:]]}" ;; esac
    done < <(grep -v '^#' "$root/scripts/packages")
}

# library_lines: those of the build and of the tests that are libraries to compile and link with.
library_lines() { packages_of build test | sed -nE 's/^ *(lib[^ ]*-dev( .*)?)$/\1/p'; }

# Without lists nobody knows what is available.
has_package_lists() { compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null; }

# missing_lines <set>...: the lines of which no package is installed. A later name counts only where the earlier ones do
# not exist: it may be another compiler, or an older version.
missing_lines() {
    local line package
    packages_of "$@" | while read -r line; do
        for package in $line; do
            is_installed "$package" && continue 2
            if is_available "$package" || ! has_package_lists; then break; fi
        done
        echo "$line"
    done
}

# as_root <command>...: directly, or through sudo.
as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# While this file exists, packages do not start their services.
policy_file=/usr/sbin/policy-rc.d
policy_mark='# of an installation by scripts/lib.sh; it is removed at its end'
policy_is_ours=

# keep_services_stopped: until allow_services, or until the script ends in whatever way but SIGKILL. A file that
# somebody else made stays as it is; one that an installation of ours left behind is taken over.
keep_services_stopped() {
    [ ! -e "$policy_file" ] || grep -qsxF "$policy_mark" "$policy_file" || return 0
    policy_is_ours=yes
    trap remove_policy_file EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
    printf '#!/bin/sh\n%s\nexit 101\n' "$policy_mark" | as_root tee "$policy_file" >/dev/null
    as_root chmod 755 "$policy_file"
}

remove_policy_file() { as_root rm -f "$policy_file"; }

allow_services() {
    [ -n "$policy_is_ours" ] || return 0
    remove_policy_file
    trap - EXIT HUP INT TERM
    policy_is_ours=
}

# install_packages <set>...: installs what is missing. Services that come with a package are neither started now nor
# at the next start of the system.
install_packages() {
    local missing line package names=() status=0
    command -v dpkg-query >/dev/null ||
        fail "this system has no dpkg" "install by hand what scripts/packages lists, then use --no-install"
    missing=$(missing_lines "$@")
    [ -n "$missing" ] || return 0
    if [ "$(id -u)" != 0 ] && ! command -v sudo >/dev/null; then
        fail "packages are missing and there is no sudo" \
            "as root: apt-get install $(echo "$missing" | awk '{printf "%s ", $1}')"
    fi
    say "Reading the package lists"
    as_root apt-get -qq update || fail "apt-get update failed" "is the network there?"
    while read -r line; do
        for package in $line; do
            if is_available "$package"; then
                names+=("$package")
                continue 2
            fi
        done
        fail "no package of: $line" "this needs Debian 12 or newer"
    done <<<"$missing"
    say "Installing ${names[*]}"
    keep_services_stopped
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install "${names[@]}" \
        >/dev/null || status=$?
    allow_services
    [ "$status" = 0 ] || fail "apt-get install failed" "run it by hand: apt-get install ${names[*]}"
    case " ${names[*]} " in *" knxd "*)
        if command -v systemctl >/dev/null; then
            as_root systemctl disable knxd.service knxd.socket >/dev/null 2>&1 || true
        fi
        ;;
    esac
}

# configure <preset> [<cmake argument>...]: quiet unless it fails.
configure() {
    local preset=$1 log
    shift
    mkdir -p "$root/build"
    log=$root/build/configure-$preset.log
    (cd "$root" && cmake --preset "$preset" "$@") >"$log" 2>&1 || {
        tail -n 40 "$log" >&2
        fail "the build cannot be configured" "the whole output is in $log"
    }
}
