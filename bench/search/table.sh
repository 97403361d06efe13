#!/bin/sh
# table.sh RESULTS: medians in ms side by side, with what the engines that answered through a predicate found.
awk -F'\t' '
  $1 == "vornexd" && !($2 in seen) { seen[$2] = 1; order[++n] = $2 }
  { median[$1, $2] = $4; last[$1, $2] = $5; note[$1, $2] = $6 }
  END {
    print "| class | vornexd | 99th percentile | PostgreSQL | scan in memory | ratio to PostgreSQL | totals |"
    print "|---|---|---|---|---|---|---|"
    for (i = 1; i <= n; i++) {
      c = order[i]; v = median["vornexd", c]; p = median["PostgreSQL", c]; s = median["scan in memory", c]
      ratio = ""
      if (p > 0 && v > 0) ratio = sprintf("%.0f", p / v)
      same = note["vornexd", c]
      if (same == note["PostgreSQL", c]) same = "equal"
      else if (note["PostgreSQL", c] != "") same = same " / " note["PostgreSQL", c]
      printf("| %s | %s | %s | %s | %s | %s | %s |\n", c, v, last["vornexd", c], p, s, ratio, same)
    }
  }' "$1"
