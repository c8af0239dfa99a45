# Layout and lint.

step_format() {
    # shellcheck disable=SC2046
    check format clang-format --dry-run -Werror $(sources Include Platform Source Tests Examples Benchmarks Fuzz)
}

sources() {
    find "$@" -name '*.cpp' -print -o -name '*.h' -print | LC_ALL=C sort
}

# A source that passed is not looked at again until it, a header that it includes, the settings or the tool change.
step_tidy() {
    export tidyFlags="-std=c++20 -IInclude -IPlatform/Include -ISource -DVok2_EXPORTS"
    export tidyCache=Build/Tidy tidyVersion logs
    tidyVersion=$(clang-tidy --version)
    mkdir -p "$tidyCache" "$logs/tidy"
    rm -f "$logs"/tidy/*
    # One source includes all public headers, so that none goes unread.
    find Include Platform/Include -name '*.h' -printf '#include <%P>\n' | LC_ALL=C sort >"$tidyCache/AllHeaders.cpp"
    export -f tidy_one
    local files bad
    files=$(sources Source Platform/Source | grep '\.cpp$'; echo "$tidyCache/AllHeaders.cpp")
    xargs --max-procs="$(nproc)" --max-args=1 bash -euc 'tidy_one "$1"' tidy <<<"$files" || true
    bad=$(find "$logs/tidy" -name '*.log' | wc -l)
    count_passed $(($(wc -l <<<"$files") - bad))
    if ((bad > 0)); then
        echo "what clang-tidy found (each place once; whole reports in Build/Logs/tidy):"
        sed -n "s|^$PWD/||; /error:/p" "$logs"/tidy/*.log | sort -u | sed 's/^/    /'
        count_failed "$bad" "tidy: $(cd "$logs/tidy" && ls | sed 's/\.log$//; s/+/\//g' | paste -sd ' ')"
    fi
}

tidy_one() {
    local source=$1 log=$logs/tidy/${1//\//+}.log files key
    # shellcheck disable=SC2086
    if files=$(clang++ $tidyFlags -MM "$source" 2>"$log" | sed 's/^[^:]*://; s/\\$//'); then
        key=$({ echo "$tidyVersion $tidyFlags"; sha256sum .clang-tidy $files; } | sha256sum | cut -d ' ' -f 1)
        if [[ -e $tidyCache/$key ]] || clang-tidy --quiet "$source" -- $tidyFlags >"$log" 2>&1; then
            touch "$tidyCache/$key"
            rm -f "$log"
        fi
    fi
}
