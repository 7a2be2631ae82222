#!/bin/sh
# Checks the fenced blocks of README.md and docs/*.md, and the demo's
# log.conf, against the installed package, and the names that
# docs/design.md gives against the source tree, so that the documentation
# cannot drift from the code.
#
#     check.sh SOURCE_DIR BUILD_DIR WORK_DIR CXX EMULATOR
#
# The convention, for whoever writes documentation:
#   ```cpp     a complete program: it is compiled against the installed
#              package (pkg-config qtlog, with the oldest C++ the package
#              allows: C++98 on Qt 4; no moc, so no Q_OBJECT), run in an
#              empty directory with a time limit, and must exit with status 0
#              by itself.
#   ```ini     a settings file: `qtlog-conf` must find no warnings in it.
#   ```output  right after a cpp or ini block (the next fenced block, prose
#              between is fine): what the program prints (standard output and
#              error together), or what qtlog-conf reports on the settings.
#              Each line must appear in that order among the lines printed,
#              other lines may come between. Runs of blanks count as one
#              blank, leading and trailing blanks are ignored, and "..."
#              stands for any text (a time, say).
#   ```sh, ```text and others are not checked.
# Fences start at the beginning of a line.
#
# In docs/design.md every `code span` outside fenced blocks that looks like a
# name must exist: a relative path (it has a "/") names a file or directory of
# the tree; a file name (name.cpp, .h, .sh, .cmake, .md, .txt, .conf) names a
# file somewhere in it; an identifier (toLog, DPFile::outItems, toLog(...))
# is a word of some file under logging/, tools/ or examples/, and every part
# of a qualified one is a word of one and the same file there. Written as
# "`NAME` in `FILE`" on one line, the name must be a word of that file. Other
# spans (#lc, "level = 3") are not checked. A span may not run over a line
# end.
set -eu
src="$1"
build="$2"
work="$3"
cxx="$4"
run="$5"

. "$(cd "$(dirname "$0")" && pwd)/../install_package.sh"
install_package "$build" "$work"
mkdir -p "$work/blocks"
checker="$prefix/bin/qtlog-conf"
flags="$(pkg-config --cflags --libs qtlog)"
std="$(pkg-config --variable=cxx_std qtlog)"

# Every fenced block becomes blocks/N.LANG; the index lists "N LANG FILE:LINE".
for md in "$src/README.md" "$src"/docs/*.md; do
    [ -f "$md" ] || continue
    awk -v dir="$work/blocks" -v name="${md#"$src"/}" -v first="$(ls "$work/blocks" | wc -l)" '
        BEGIN { n = first }
        /^```/ && !inside { lang = substr($0, 4); gsub(/[ \t]/, "", lang); if (lang == "") lang = "none"
                            n++; inside = 1; file = dir "/" n "." lang
                            printf "" > file
                            print n, lang, name ":" NR >> (dir "/../index"); next }
        /^```/ && inside  { inside = 0; close(file); next }
        inside            { print >> file }
    ' "$md"
done

# matches OUTPUT EXPECTED: the expected lines appear in order in OUTPUT.
matches() {
    awk '
        function norm(s) { gsub(/[ \t\r]+/, " ", s); sub(/^ /, "", s); sub(/ $/, "", s); return s }
        function fits(line, pat,   n, parts, i, pos, p, rest, last) {
            n = split(pat, parts, /\.\.\./)
            if (n == 1) return line == pat
            if (substr(line, 1, length(parts[1])) != parts[1]) return 0
            pos = length(parts[1]) + 1
            for (i = 2; i < n; i++) {
                p = index(substr(line, pos), parts[i])
                if (!p) return 0
                pos += p - 1 + length(parts[i])
            }
            rest = substr(line, pos); last = parts[n]
            return length(rest) >= length(last) && substr(rest, length(rest) - length(last) + 1) == last
        }
        FNR == NR { want[++wanted] = norm($0); next }
        next_ <= wanted && fits(norm($0), want[next_ ? next_ : 1]) { next_ = (next_ ? next_ : 1) + 1 }
        END { if (!wanted) exit 0
              got = next_ ? next_ - 1 : 0
              if (got < wanted) { print "missing: " want[got + 1]; exit 1 } }
    ' "$2" "$1"
}

failed=0
checked=0
while read -r n lang where; do
    case "$lang" in cpp|ini) ;; *) continue ;; esac
    expected=""
    nextlang="$(awk -v n="$((n + 1))" '$1 == n { print $2 }' "$work/index")"
    [ "$nextlang" = output ] && expected="$work/blocks/$((n + 1)).output"
    dir="$work/run-$n"
    mkdir -p "$dir"
    ok=yes
    if [ "$lang" = cpp ]; then
        # shellcheck disable=SC2086
        if ! $cxx -std="$std" -fPIC "$work/blocks/$n.cpp" -o "$dir/program" $flags 2>"$dir/out"; then
            ok=no
        elif ! (cd "$dir" && timeout 30 $run ./program >"$dir/out" 2>&1); then
            echo "exit status $? (124: did not exit within 30 s)" >>"$dir/out"
            ok=no
        fi
    else
        cp "$work/blocks/$n.ini" "$dir/log.conf"
        (cd "$dir" && $run "$checker" log.conf >"$dir/out" 2>&1) || ok=no
    fi
    if [ "$ok" = yes ] && [ -n "$expected" ] && ! matches "$dir/out" "$expected" >"$dir/why"; then
        cat "$dir/why" >>"$dir/out"
        ok=no
    fi
    checked=$((checked + 1))
    if [ "$ok" = no ]; then
        failed=$((failed + 1))
        echo "FAILED: the $lang block at $where"
        sed 's/^/    /' "$dir/out"
    fi
done <"$work/index"
# The names that docs/design.md gives: each span as "LINE<tab>TEXT", and each
# "`NAME` in `FILE`" once more as "LINE<tab>NAME<tab>FILE".
design="$src/docs/design.md"
if [ -f "$design" ]; then
    awk '
        /^```/ { inside = !inside; next }
        inside { next }
        { n = split($0, part, "`")
          if (n > 0 && n % 2 == 0) { print NR "\t"; next }   # a span runs over the line end
          for (i = 2; i < n; i += 2) if (part[i] != "") print NR "\t" part[i]
          rest = $0
          while (match(rest, /`[^`]+` in `[^`]+`/)) {
              split(substr(rest, RSTART, RLENGTH), pair, "`")
              print NR "\t" pair[2] "\t" pair[4]
              rest = substr(rest, RSTART + RLENGTH)
          } }
    ' "$design" >"$work/names"
    tab="$(printf '\t')"
    path_pattern='^[A-Za-z0-9_.-]+(/[A-Za-z0-9_.+-]*)+$'
    file_pattern='^[A-Za-z0-9_.-]+\.(cpp|h|sh|cmake|md|txt|conf)$'
    # where FILE: the files of the tree that FILE names, one a line.
    where() {
        if printf '%s\n' "$1" | grep -Eq "$path_pattern"; then
            [ ! -e "$src/$1" ] || printf '%s\n' "$src/$1"
        elif printf '%s\n' "$1" | grep -Eq "$file_pattern"; then
            find -H "$src" -path "$src/build" -prune -o -path "$src/.git" -prune \
                 -o -name "$1" -print
        fi
    }
    names=0
    while IFS="$tab" read -r line span in_file; do
        why=""
        if [ -z "$span" ]; then
            why="an odd number of backticks: keep each code span on one line"
        elif [ -z "$in_file" ] && printf '%s\n' "$span" | grep -Eq "$path_pattern|$file_pattern"; then
            [ -n "$(where "$span")" ] || why="no such file or directory"
        else
            # An identifier, maybe qualified, maybe with an argument list.
            name="$(printf '%s\n' "$span" | sed -n \
                's/^\(~\{0,1\}[A-Za-z_][A-Za-z0-9_]*\(::~\{0,1\}[A-Za-z_][A-Za-z0-9_]*\)*\)\((.*)\)\{0,1\}$/\1/p')"
            [ -n "$name" ] || continue
            if [ -n "$in_file" ]; then
                # Only where FILE is a file of the tree; its own span says if it is not.
                files="$(where "$in_file" | grep -v '/$' || true)"
                [ -n "$files" ] || continue
                files="$(printf '%s\n' "$files" | xargs grep -lw -e "${name%%::*}")" || true
                place="$in_file"
            else
                files="$(grep -rlw -e "${name%%::*}" "$src/logging" "$src/tools" "$src/examples")" || true
                place="logging/, tools/ or examples/"
            fi
            rest="$name"
            while [ -n "$files" ] && [ "${rest#*::}" != "$rest" ]; do
                rest="${rest#*::}"
                files="$(printf '%s\n' "$files" | xargs grep -lw -e "${rest%%::*}")" || true
            done
            [ -n "$files" ] || why="not a name in $place"
        fi
        names=$((names + 1))
        if [ -n "$why" ]; then
            failed=$((failed + 1))
            echo "FAILED: docs/design.md:$line: ${span:+\`$span\`: }$why"
        fi
    done <"$work/names"
    echo "$names names in docs/design.md checked"
fi

# The demo's settings file is a sample too.
demo="$src/examples/demo/log.conf"
if [ -f "$demo" ] && ! $run "$checker" "$demo" >"$work/demo.out" 2>&1; then
    failed=$((failed + 1))
    echo "FAILED: examples/demo/log.conf"
    sed 's/^/    /' "$work/demo.out"
fi
echo "$checked blocks, the demo's log.conf and docs/design.md's names checked, $failed failed"
[ "$failed" -eq 0 ]
