# Draws the scenes from `first` to `last` in the log of a demonstration as an SVG that looks like a terminal.
# usage: awk -v first=N -v last=N -f recording.awk LOG

/^--- / { ++scene }

scene >= first && scene <= last && !(/^$/ && count == 0) { shown[++count] = $0; if (length($0) > longest) longest = length($0) }

END {
    while (shown[count] == "") --count
    high = 17; wide = 7.85; edge = 14
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" xml:space=\"preserve\" font-family=\"monospace\" font-size=\"13\">\n", \
        longest * wide + 2 * edge, count * high + 2 * edge
    print "<style>text { fill: #d0d7de } .scene { fill: #79c0ff; font-weight: bold }"
    print ".command { fill: #ffffff; font-weight: bold } .ok { fill: #7ee787 } .wrong { fill: #ff7b72 }</style>"
    print "<rect width=\"100%\" height=\"100%\" rx=\"8\" fill=\"#161b22\"/>"
    for (i = 1; i <= count; ++i) {
        text = shown[i]
        class = text ~ /^---/ ? "scene" : text ~ /^ *\$/ ? "command" : text ~ /^ *ok / ? "ok" : text ~ /WRONG/ ? "wrong" : ""
        gsub(/&/, "\\&amp;", text)
        gsub(/</, "\\&lt;", text)
        if (text != "")
            printf "<text%s x=\"%d\" y=\"%d\">%s</text>\n", class == "" ? "" : " class=\"" class "\"", edge, edge + i * high - 5, text
    }
    print "</svg>"
}
