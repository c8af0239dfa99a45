# What gdb shows of values of the library, of a program that has debug information and a library that has none.

step_debugger() {
    local work
    work=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-debugger.XXXXXX")
    if build_library; then
        check debugger debugger_shows_values "$work"
        check debugger-described debugger_shows_values "$work" -femit-class-debug-always
    fi
    rm -rf "$work"
}

debugger_shows_values() {
    local name values show=()
    g++ -std=c++20 -g -O0 "${@:2}" -IInclude -IPlatform/Include Tests/Debugger/Values.cpp -o "$1/Values" \
        -LBuild/release/Source -Wl,-rpath,"$PWD/Build/release/Source" -lVok2 -lfmt || return
    values=$(expected_values)
    while IFS= read -r name; do
        show+=(-ex "echo $name\\040=\\040" -ex "output $name" -ex 'echo \n')
    done < <(sed 's/ = .*//' <<<"$values")
    LC_ALL=C.UTF-8 timeout 60 gdb -nx -batch -ex 'set debuginfod enabled off' -ex 'set disable-randomization off' \
        -ex 'set print elements 70' -ex 'source Debugger/printers.py' -ex 'break Stop' -ex run -ex up \
        "${show[@]}" "$1/Values" >"$1/output" 2>&1
    cat "$1/output"
    diff <(echo "$values") <(tail -n "$(wc -l <<<"$values")" "$1/output")
}

expected_values() {
    cat <<'END'
path = "C:\Grüße\😀"
lone = "a<U+D83D><U+000A>b"
empty = ""
longer = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"...
moved = ""
reference = "C:\Grüße\😀"
success = "success"
windows = "The file was not found. (Windows Error 2). path[C:\ü]"
base = "The failure has no further description. (Com Error -7FFFBFFB)."
noFile = no handle
nullFile = handle 0x0
noToken = no handle
key = handle 0x1234
garbage.path = <no text: Cannot access memory at address 0xa5a5a5a5a5a5a5a5>
garbage.error = <no message: Cannot access memory at address 0xa5a5a5a5a5a5a5a5>
garbage.owner = handle 0xa5a5a5a5a5a5a5a5
END
}
