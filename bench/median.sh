# Sourced by the bench scripts: median VALUE...  prints the values' median (the mean of the
# middle two for an even count).
median() {
  printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print (NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2) }'
}
