#!/bin/bash
# doc_sessions.sh KRV_SIM SOURCE_DIR
# Every session written down in the engineers' docs (a ```krv-sim block) is replayed in a panel of
# its own: its "> " lines go to `krv-sim --echo`, whose output must be the block, "…" standing for
# any text within a line. docs/result-codes.md must hold the result-code table as
# `krv-sim --codes` prints it, and every function of CONTRIBUTING.md's map must be in its file.
set -u
sim=$1 top=$2
codes=$top/docs/result-codes.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# Line by line; "…" matches any run of characters.
compare() {
    LC_ALL=C awk -v expected="$1" '
        function matches(a, e,    n, p, i, at) {
            n = split(e, p, "…")
            if (substr(a, 1, length(p[1])) != p[1]) return 0
            if (n == 1) return a == e
            a = substr(a, length(p[1]) + 1)
            for (i = 2; i < n; i++) {
                if (!(at = index(a, p[i]))) return 0
                a = substr(a, at + length(p[i]))
            }
            return length(a) >= length(p[n]) && substr(a, length(a) - length(p[n]) + 1) == p[n]
        }
        { if ((getline e < expected) <= 0 || !matches($0, e)) exit 1 }
        END { if ((getline e < expected) > 0) exit 1 }' "$2"
}

for doc in "$top"/docs/{commands,channels,result-codes}.md; do
    rm -f "$work"/block.*
    awk -v dir="$work" '/^```krv-sim$/ { f = sprintf("%s/block.%03d", dir, ++n); print NR > f; next }
        /^```/ { f = "" } f { print > f }' "$doc"
    for block in "$work"/block.*; do
        [ -e "$block" ] || { echo "$doc: no krv-sim session"; failed=1; continue; }
        tail -n +2 "$block" >"$work/expected"
        sed -n 's/^> //p' "$work/expected" >"$work/input"
        env -u KRV_IN_SANDBOX "$sim" --echo <"$work/input" >"$work/actual" 2>/dev/null
        if ! compare "$work/expected" "$work/actual"; then
            echo "$doc:$(head -n 1 "$block"): the session does not hold; krv-sim printed:"
            diff "$work/expected" "$work/actual"
            failed=1
        fi
    done
done

"$sim" --codes >"$work/codes"
if ! sed -n '/^| Code | krv-sim says/,/^$/p' "$codes" | grep '^|' | diff - "$work/codes"; then
    echo "$codes: the result-code table is not the one of krv-sim --codes (> lines)"
    failed=1
fi
while IFS='|' read -r _ _ functions files _; do
    f=($(grep -o '`[^`]*`' <<<"$functions" | tr -d '`'))
    p=($(grep -o '`[^`]*`' <<<"$files" | tr -d '`'))
    for i in "${!f[@]}"; do
        file=$top/device/krv_ctrl/${p[i]:-${p[0]}}
        grep -qE "^[A-Za-z].*[ *&]${f[i]}\(" "$file" || { echo "CONTRIBUTING.md: no ${f[i]} in $file"; failed=1; }
    done
done < <(sed -n '/^| Keyword or channel |/,/^$/p' "$top/CONTRIBUTING.md" | tail -n +3)
exit $failed
