# shellcheck shell=bash
# What the scripts in tools/ share. Sourced, not run.

say() { printf '%s: %s\n' "$PROGRAM" "$*"; }

fail() {
    printf '%s: FAILED: %s\n' "$PROGRAM" "$*" >&2
    exit 1
}

# Runs a command quietly; its output is shown when it fails.
quietly() {
    local log
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1; then
        tail -n 200 "$log" >&2
        rm -f "$log"
        fail "$*"
    fi
    rm -f "$log"
}

# Runs a command as root. Says so and stops where that is not possible.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "this needs root, and there is no sudo: $*"
    fi
}

# Installs those of the Debian packages that are missing.
require_packages() {
    command -v dpkg-query >/dev/null || fail "this is no Debian system; install yourself what Debian calls: $*"

    local package missing=()
    for package in "$@"; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        say "every package that is needed is installed"
        return
    fi

    say "installing ${missing[*]}"
    quietly as_root apt-get update
    quietly as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
}

# Waits, up to 20 seconds, until a command succeeds.
wait_until() {
    local tries=200
    until "$@"; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || return 1
        sleep 0.1
    done
}
