# The report of llvm-cov, a row a file (lines in columns 8 and 9), as a table with a row a folder.
BEGIN {
  count = split("base selflog storage capture input feedback catchers debuglog daemon", names)
  for (i = 1; i <= count; i++) ours[names[i]] = 1
}
/\.(cpp|h) / {
  count = split($1, path, "/")
  folder = count > 1 ? path[count - 1] : "."
  lines[folder] += $8
  missed[folder] += $9
}
END {
  for (folder in lines) {
    if (lines[folder] == 0) continue
    if (folder in ours) { all += lines[folder]; gone += missed[folder] }
    show(folder, lines[folder], missed[folder], "sort")
  }
  close("sort")
  show("the daemon", all, gone, "cat")
}
function show(name, total, without, way) {
  printf "%-14s %6d lines  %6d run  %5.1f %%\n", name, total, total - without, 100 * (total - without) / total | way
}
