# The main command, on an empty directory, and with arguments that it must refuse with exit code 2.
step_tour() {
    local directory
    directory=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-tour.XXXXXX")
    check tour ./run "$directory" '\\server\share\a\b.txt'
    check tour-without-directory refused ./run "$directory/missing"
    check tour-three-arguments refused ./run "$directory" 'C:\a' 'C:\b'
    check tour-unknown-option refused ./run --fast
    rm -rf "$directory"
}

refused() {
    local code=0
    "$@" || code=$?
    ((code == 2))
}
