# SPDX-License-Identifier: MIT
#
# awk -f includes.awk layers.txt FILE...: holds every #include "..." to the layers; prints those that
# break them and then fails.

# The longest entry of the layers that the path begins with, "" for none.
function folder_of(path) {
  do {
    if (path in layer) return path
  } while (sub(/\/[^\/]*$/, "", path))
  return ""
}

function complain(reason) {
  printf "%s:%d: #include \"%s\": %s\n", FILENAME, FNR, included, reason
  failed = 1
}

FNR == 1 { reads_layers = FILENAME == ARGV[1] }

reads_layers {
  sub(/#.*/, "")
  if (/^(hide|show) /) {
    sub(/:$/, "", $2)
    for (i = 3; i <= NF; ++i) if ($1 == "hide") hidden[$2, $i]; else shown[$2, $i]
  } else if (NF > 0) {
    ++layers
    for (i = 1; i <= NF; ++i) layer[$i] = layers
  }
  next
}

/^[ \t]*#[ \t]*include[ \t]*"/ {
  included = $0
  gsub(/^[^"]*"|".*$/, "", included)
  from = folder_of(FILENAME)
  to = folder_of(included)
  part = FILENAME
  sub(/\/.*/, "", part)
  if (from == "")
    complain("the including folder has no line in " ARGV[1])
  else if (to == "")
    complain("no folder of " ARGV[1] "; includes name the path from the root")
  else if (from != to && layer[from] <= layer[to])
    complain(from " is not above " to)
  else if (((part, to) in hidden) && !((part, included) in shown))
    complain(to " is hidden from " part)
}

END { exit failed }
