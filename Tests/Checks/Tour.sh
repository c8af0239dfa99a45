# The main command, on a directory with a file of each kind, and with arguments that it must refuse with exit code 2.
step_tour() {
    local directory
    directory=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-tour.XXXXXX")
    check tour tour_shows_directories "$directory"
    check watch watch_prints_until_interrupted "$directory"
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

# Kinds, sizes and names are those of the entries; the temporary directory and its tree are there and then gone.
tour_shows_directories() {
    local given=$1/given temporary=$1/temporary output line user step
    user=$(id --user --name)
    step="not as nobody: The caller lacks a privilege that this needs."
    ((EUID != 0)) || step="nobody writes: Access is denied."
    mkdir -p "$given/sub/not shown"
    printf 12345 >"$given/five bytes"
    chmod 444 "$given/five bytes"
    ln -s missing "$given/dangling"
    output=$(TEMP=$temporary ./run "$given" '\\server\share\a\b.txt') || return
    echo "$output"
    output=$(sed "s/{[0-9A-F-]\{36\}}/{GUID}/; s|${temporary//\//\\\\}|TEMP|; s/  */ /g
                   s/^[0-9:]\{8\}\.[0-9]\{6\} //" <<<"$output")
    for line in ' directory sub' ' file, read-only 5 five bytes' ' file 19 utf8-with-mark.txt' ' link dangling' \
        'T:\vok2-tour exists: no' 'C:TEMP\{GUID} exists: yes' ' directory one' ' directory two' ' file, read-only 2 three.txt' \
        'C:TEMP\{GUID} exists: no' 'utf8-with-mark.txt: 10 bytes, Grüße' 'utf16-with-mark.txt: 12 bytes, Grüße' \
        'utf16.txt: 10 bytes, Grüße' ' file, read-only 10 utf16.txt' ' file 12 utf16-with-mark.txt' ' directory sub' \
        'read-only utf16.txt deleted: yes; left of utf16*:' 'added C:TEMP\{GUID}\seen.txt' \
        'removed C:TEMP\{GUID}\seen.txt' " user [$user]" ' system directory [C:\usr\lib]' "$step" "$user writes: yes"; do
        grep --quiet --line-regexp --fixed-strings -- "$line" <<<"$output" || {
            echo "the tour doesn't print \"$line\""
            return 1
        }
    done
    if [[ $(grep --count --line-regexp 'due in 0.1 s, late by [0-9]* microseconds' <<<"$output") != 5 ]]; then
        echo "the tour doesn't say how late timers are"
        return 1
    fi
    if grep --quiet 'not shown' <<<"$output"; then
        echo "the tour went further down"
        return 1
    fi
    [[ -d $temporary && -z $(ls -A "$temporary") && ! -e $given/vok2-tour && -e "$given/five bytes" ]]
}

watch_prints_until_interrupted() {
    local watched=$1/watched output=$1/output process
    mkdir -p "$watched"
    Build/tour/Examples/Watch "$watched" >"$output" 2>&1 &
    process=$!
    wait_for grep --quiet watching "$output" && touch "$watched/a b" && wait_for grep --quiet 'added .*\\a b$' "$output"
    local code=$?
    kill -INT "$process"
    wait "$process" || code=$?
    cat "$output"
    return "$code"
}

# Runs the command until it succeeds, for ten seconds at most.
wait_for() {
    local i
    for ((i = 0; i < 1000; ++i)); do
        ! "$@" || return 0
        sleep 0.01
    done
    return 1
}
