# What Doxygen reads in place of a header:
# - the comment at its top is the description of the file, and what is indented there is code; text comes last
# - without a comment, a namespace Detail, a member of its classes and a defaulted member have nothing to tell and stay
#   out; so do the specialisations behind the library's namespace
# Lines keep their numbers.

{ line[NR] = $0 }

END {
    describe_file()
    for (i = 1; i <= NR; ++i) {
        if (line[i] == "namespace Detail" && !commented(i))
            hide_to("} // namespace Detail")
        else if (line[i] ~ /^(} \/\/ )?namespace Detail$/)
            isDetail = line[i] == "namespace Detail"
        else if ((line[i] ~ /= default;$/ || isDetail && line[i] ~ /^    [a-z].*[;}]$/) && !commented(i))
            line[i] = ""
        else if (line[i] == "} // namespace Brindle::Vok")
            isBehind = 1
        else if (isBehind && line[i] ~ /^template </) {
            for (k = i - 1; line[k] ~ /^\/\/\//; --k)
                line[k] = ""
            hide_to("};")
        }
    }
    for (i = 1; i <= NR; ++i) {
        if (line[i] ~ /^ *\/\/\//)
            gsub(/%[A-Z]/, "%&", line[i])       # a single one would be taken away
        print line[i]
    }
}

function commented(at) {
    return line[at - 1] ~ /^ *\/\/\//
}

function hide_to(last) {
    for (; i <= NR && line[i] != last; ++i)
        line[i] = ""
    line[i] = ""
}

function describe_file(    at, isCode) {
    for (at = 1; line[at] ~ /^\/\//; ++at) {
        if (line[at] == "//" && !isCode && line[at + 1] ~ /^\/\/     /) {
            isCode = 1
            line[at] = "/// ```cpp"
        }
        else if (line[at] == "//" && isCode && line[at + 1] !~ /^\/\/     /) {
            isCode = 0
            line[at] = "/// ```"
        }
        else
            line[at] = "/" (isCode ? substr(line[at], 1, 2) substr(line[at], 7) : line[at])
    }
    line[at] = "/// @file"       # in the place of #pragma once
}
