# The main command, on an empty directory and on one that isn't there.
step_tour() {
    local directory
    directory=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-tour.XXXXXX")
    check tour ./run "$directory"
    check tour-without-directory refused ./run "$directory/missing"
    rm -rf "$directory"
}

refused() {
    ! "$@"
}
