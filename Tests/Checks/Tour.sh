# The main command, on an empty directory, and with arguments that it must refuse with exit code 2.
step_tour() {
    local directory
    directory=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-tour.XXXXXX")
    check tour ./run "$directory"
    check tour-without-directory refused ./run "$directory/missing"
    check tour-two-directories refused ./run "$directory" "$directory"
    check tour-unknown-option refused ./run --fast
    rm -rf "$directory"
}

refused() {
    local code=0
    "$@" || code=$?
    ((code == 2))
}
