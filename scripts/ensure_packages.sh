# Sourced by the scripts: ensure_packages PKG... installs with apt-get the Debian packages this
# machine lacks (as root, or through sudo).
ensure_packages() {
    local missing=() p sudo_cmd=""
    for p in "$@"; do dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p"); done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "installing: ${missing[*]}"
    [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
    # A mirror caught mid-update fails one package list or another; the install below still
    # succeeds when the lists it needs are there, and fails plainly when not.
    $sudo_cmd apt-get update -qq || echo "apt-get update reported errors; installing anyway" >&2
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
}
