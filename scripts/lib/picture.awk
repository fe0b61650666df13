# Draws a picture from its text. scripts/pictures --help describes the language.

BEGIN { FS = " *[|] *"; wide = 215; high = 58; across = 120; down = 36; edge = 12 }

function fail(why) {
    printf "%s:%d: %s: %s\n", FILENAME, FNR, why, $0 > "/dev/stderr"
    exit failed = 1
}

function words(class, x, y, text) {
    if (text == "") return
    gsub(/&/, "\\&amp;", text)
    gsub(/</, "\\&lt;", text)
    printf "<text class=\"%s\" x=\"%d\" y=\"%d\">%s</text>\n", class, x, y, text
}

/^#/ || /^$/ { next }

$1 == "box" && $3 > 0 && $4 > 0 {
    name[++boxes] = $2
    column[$2] = $3
    left[$2] = edge + ($3 - 1) * (wide + across)
    top[$2] = edge + ($4 - 1) * (high + down)
    title[$2] = $5
    subtitle[$2] = $6
    if (left[$2] + wide + edge > width) width = left[$2] + wide + edge
    if (top[$2] + high + edge > height) height = top[$2] + high + edge
    next
}

$1 == "arrow" && ($2 in left) && ($3 in left) && column[$2] <= column[$3] {
    from[++arrows] = $2
    to[arrows] = $3
    label[arrows] = $4
    next
}

{ fail("neither a box in the grid nor an arrow between boxes, downwards, upwards or to the right") }

END {
    if (failed) exit 1
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" font-family=\"sans-serif\">\n", width, height
    print "<style>"
    print "rect { fill: #eef3f8; stroke: #4878a8 } .line { fill: none; stroke: #57606a; stroke-width: 1.5 } .head { fill: #57606a }"
    print "text { text-anchor: middle; fill: #1f2328; font-size: 12px } .title { font-size: 16px; font-weight: bold }"
    print "@media (prefers-color-scheme: dark) {"
    print "rect { fill: #1c2733; stroke: #6ca0d0 } .line { stroke: #9aa4ae } .head { fill: #9aa4ae } text { fill: #e6edf3 }"
    print "} </style>"
    print "<marker id=\"head\" viewBox=\"0 0 8 8\" refX=\"7\" refY=\"4\" markerWidth=\"7\" markerHeight=\"7\" orient=\"auto\">"
    print "<path class=\"head\" d=\"M0 0 L8 4 L0 8 z\"/></marker>"
    for (i = 1; i <= arrows; ++i) {
        a = from[i]; b = to[i]; start = left[a] + wide
        if (column[a] == column[b])
            way = sprintf("M%d %d V%d", left[a] + wide / 2, top[a] + (top[b] < top[a] ? 0 : high), top[b] + (top[b] < top[a] ? high : 0))
        else
            way = sprintf("M%d %d h16 V%d H%d", start, top[a] + high / 2, top[b] + high / 2, left[b])
        printf "<path class=\"line\" marker-end=\"url(#head)\" d=\"%s\"/>\n", way
        words("", (start + 16 + left[b]) / 2, top[b] + high / 2 - 7, label[i])
    }
    for (i = 1; i <= boxes; ++i) {
        a = name[i]
        printf "<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" rx=\"6\"/>\n", left[a], top[a], wide, high
        words("title", left[a] + wide / 2, top[a] + 25, title[a])
        words("", left[a] + wide / 2, top[a] + 45, subtitle[a])
    }
    print "</svg>"
}
