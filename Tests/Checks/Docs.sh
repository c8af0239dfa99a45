# The guide in Docs: each of its programs is compiled as it stands there, runs, and prints what the text block behind it
# says, where `...` stands for anything within a line. The blocks of README.md that name their includes are compiled. No
# link of these pages leads nowhere.
#
# A block is a whole program, or the body of one whose first line is `// #include <A>, <B>`: it then stands in a main
# behind these includes and `using namespace Brindle::Vok`.

step_docs() {
    local work page name source
    work=$(mktemp --directory "${TMPDIR:-/tmp}/vok2-docs.XXXXXX")
    check docs-links docs_links README.md Docs/*.md
    check docs-stand-in docs_have_each_name
    if build_library; then
        for page in README.md Docs/*.md; do
            name=${page%.md}
            docs_take_apart "$page" "$work/${name//\//-}"
        done
        for source in "$work"/*.cpp; do
            check "program-$(basename "$source" .cpp)" docs_program "${source%.cpp}"
        done
    fi
    rm -rf "$work"
}

# docs_take_apart PAGE NAME: makes NAME-LINE.cpp of each block of C++, LINE being where it begins in the page, and
# NAME-LINE.txt of a text block that follows with nothing but blank lines between.
docs_take_apart() {
    awk -v name="$2" -v page="$1" '
        function print_line(number) { print "#line " number " \"" page "\"" >source }
        function begin_body(line) {
            for (; match(line, /<[^>]*>/); line = substr(line, RSTART + RLENGTH))
                print "#include " substr(line, RSTART, RLENGTH) >source
            print "using namespace Brindle::Vok;\nint main()\n{" >source
            print_line(NR + 1)
        }
        /^```/ && kind != "" {
            if (kind == "body")
                print "}" >source
            if (kind != "text")
                last = source
            kind = ""
            next
        }
        /^```cpp$/  { source = name "-" NR ".cpp"; kind = "cpp"; isFirst = 1; next }
        /^```text$/ && last != "" {
            kind = "text"
            text = substr(last, 1, length(last) - 3) "txt"
            printf "" >text
            last = ""
            next
        }
        /^```/      { kind = "other"; next }
        kind == "text" { print >text; next }
        kind == "cpp" && isFirst {
            isFirst = 0
            if (/^\/\/ #include /) { kind = "body"; begin_body($0); next }
            if (page == "README.md" && !/^#include /) { kind = "other"; next }
            print_line(NR)
        }
        kind == "cpp" || kind == "body" { print >source; next }
        NF { last = "" }' "$1"
}

docs_program() {
    local name=$1 library=$PWD/Build/release/Source directory=$1.directory compile
    compile=(g++ -std=c++20 -Wall -Wextra -Werror -IInclude -IPlatform/Include "$name.cpp")
    if [[ $(basename "$name") == README-* ]]; then
        "${compile[@]}" -fsyntax-only
        return
    fi
    mkdir "$directory"
    "${compile[@]}" -o "$name" "-L$library" "-Wl,-rpath,$library" -lVok2 -lfmt &&
        (cd "$directory" && TEMP=$directory timeout 30 "$name" >"$name.out") || return
    [[ ! -e $name.txt ]] || docs_fits "$name.txt" "$name.out"
}

# docs_fits EXPECTED ACTUAL
docs_fits() {
    local patterns lines i
    mapfile -t patterns < <(sed 's/[][*?\\]/\\&/g; s/\.\.\./*/g' "$1")
    mapfile -t lines <"$2"
    for ((i = 0; i < ${#patterns[@]} || i < ${#lines[@]}; ++i)); do
        # shellcheck disable=SC2053
        if ((i >= ${#patterns[@]} || i >= ${#lines[@]})) || [[ ${lines[i]} != ${patterns[i]} ]]; then
            printf 'line %d should be\n    %s\nand is\n    %s\n' $((i + 1)) "$(sed "$((i + 1))!d" "$1")" "${lines[i]-}"
            return 1
        fi
    done
}

docs_links() {
    local page link file code=0
    for page in "$@"; do
        while read -r link; do
            file=$(dirname "$page")/${link%%#*}
            [[ $link != \#* ]] || file=$page
            if [[ ! -e $file ]] ||
                { [[ $link == *#* ]] && ! grep -xF -- "${link#*#}" < <(docs_anchors "$file") >/dev/null; }; then
                echo "$page: \"$link\" leads nowhere"
                code=1
            fi
        done < <(awk '/^```/ { inside = !inside; next } !inside' "$page" | sed 's/`[^`]*`//g' |
            grep -o '\](\([^)]*\))' | sed 's/^](//; s/)$//' | grep -v '^[a-z]*:')
    done
    return "$code"
}

# The names of a page's headings in links.
docs_anchors() {
    sed -n 's/^#\+ //p' "$1" | tr '[:upper:]' '[:lower:]' | sed 's/[^a-z0-9 _-]//g; s/ /-/g'
}

# Stand-in.md has a word about each function that the stand-in declares.
docs_have_each_name() {
    local function code=0
    while read -r function; do
        grep --quiet "\`$function\`" Docs/Stand-in.md || {
            echo "Docs/Stand-in.md doesn't mention $function"
            code=1
        }
    done < <(sed -n 's/.*VOK_PLATFORM_EXPORT [^;(]*[ *]\([A-Za-z_0-9]*\)(.*/\1/p' Platform/Include/Brindle/Platform/*.h)
    return "$code"
}
