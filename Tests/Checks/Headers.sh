# Counts each header with each compiler, and the linking of all of them, as one.
step_headers() {
    local preset directory objects bad
    for preset in release clang; do
        logged "$preset-configure" cmake --preset "$preset" || {
            count_failed 1 "headers: configuring preset $preset"
            continue
        }
        directory=Build/$preset/Tests/Headers
        objects=$(find "$directory" -name '*.h.cpp' | wc -l)
        if logged "headers-$preset" cmake --build --preset "$preset" --target HeadersAlone -- -k 0; then
            count_passed $((objects + 1))
        else
            bad=$(sed -n 's|^FAILED: .*HeadersAlone\.dir/\(.*\)\.cpp\.o.*|\1|p' "$logs/headers-$preset.log" | sort -u)
            bad=${bad:-"the program of all headers, or what it links"}
            count_failed "$(wc -l <<<"$bad")" "headers ($preset): $(paste -sd ' ' <<<"$bad")"
        fi
    done
}
