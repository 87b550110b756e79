# Mends what the converter writes: literals are bold, since a terminal has no other font for them; no paragraph begins behind a
# heading; and a hanging term is one, where the converter moves the paragraph up by a line, which fails at the end of a page.
{
    gsub(/\\fC/, "\\fB")
    lines[NR] = $0
}

function is_term(i) { return lines[i] == ".LP" && lines[i + 2] == ".if n \\" && lines[i + 6] == ".IP \"\" 5n" }

END {
    for (i = 1; i <= NR; ++i) {
        if (is_term(i)) {
            printf ".TP 8\n%s\n", lines[i + 1]
            i += 6
        } else if (lines[i] != ".LP" || lines[i - 2] !~ /^\.S[HS]$/) {
            print lines[i]
        }
    }
}
