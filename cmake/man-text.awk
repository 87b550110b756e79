# Makes of a page in docs/man what the converter takes for a man page: the sections are the top headings, lists of names and
# tables of two columns become paragraphs with hanging terms, links are their text, and "<!-- man: FILE -->" stands for
# a document beside the page. FOLDER is the page's.

# A name with its arguments: `--socket PATH` is `--socket` *PATH*.
function literal(code,    words, count, i, text) {
    count = split(code, words, " ")
    text = "`" words[1] "`"
    for (i = 2; i <= count; ++i) {
        text = text " " (words[i] ~ /^\[.*\]$/ ? "[*" substr(words[i], 2, length(words[i]) - 2) "*]" : "*" words[i] "*")
    }
    return text
}

function term(codes,    parts, count, i, text) {
    count = split(codes, parts, "`")
    for (i = 1; i <= count; ++i) {
        text = text (i % 2 == 0 ? literal(parts[i]) : parts[i])
    }
    return text
}

function without_links(line,    link) {
    while (match(line, /\[[^]]*\]\([^)]*\)/)) {
        link = substr(line, RSTART + 1, RLENGTH - 1)
        line = substr(line, 1, RSTART - 1) substr(link, 1, index(link, "]") - 1) substr(line, RSTART + RLENGTH)
    }
    return line
}

# `volumed(8)` is **volumed**(8).
function with_references(line,    name) {
    while (match(line, /`[a-z_.]+\([0-9]\)`/)) {
        name = substr(line, RSTART + 1, RLENGTH - 5)
        line = substr(line, 1, RSTART - 1) "**" name "**" substr(line, RSTART + RLENGTH - 4, 3) substr(line, RSTART + RLENGTH)
    }
    return line
}

function definition(name, text) { printf "\n%s\n: %s\n", name, text }

function row(line,    cells) {
    split(line, cells, / *\| */)
    definition(cells[2] ~ /`/ ? cells[2] : "**" cells[2] "**", cells[3])
}

# A line of dashes makes a head of the line above it.
function table(line,    cells) {
    if (line ~ /^\|[-|]+$/) {
        split(last_row, cells, / *\| */)
        definition("*" cells[2] "*", "*" cells[3] "*")
        last_row = ""
        return
    }
    end_row()
    last_row = line
}

function end_row() {
    if (last_row != "") {
        row(last_row)
    }
    last_row = ""
}

function process(line, depth,    file) {
    if (line ~ /^```/) {
        fenced = !fenced
    }
    if (!fenced && line !~ /^```/) {
        line = with_references(without_links(line))
        if (line ~ /^\|/) {
            table(line)
            return
        }
        end_row()
        if (match(line, /^- `[^`]+`(, `[^`]+`)*: /)) {
            definition(term(substr(line, 3, RLENGTH - 4)), substr(line, RLENGTH + 1))
            return
        }
        if (line ~ /^# /) {
            return
        }
        if (line ~ /^#/ && depth == 0) {
            line = substr(line, 2)
        }
        if (match(line, /^<!-- man: .* -->$/)) {
            file = FOLDER "/" substr(line, 11, RLENGTH - 14)
            while ((getline line < file) > 0) {
                process(line, 1)
                ++included
            }
            if (!included) {
                print "man-text: cannot read " file > "/dev/stderr"
                exit 1
            }
            return
        }
        sub(/^  /, "", line)
    }
    print line
}

{ process($0, 0) }

END { end_row() }
