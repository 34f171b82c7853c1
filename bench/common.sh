# Shared by the benchmark scripts; sourced, not run.

# password_for FILE: the user password the corpus manifest ($manifest) gives
# FILE in its traits (userpw=...), or nothing.
password_for() {
  [ -f "$manifest" ] || return 0
  awk -F'\t' -v f="$1" '$1==f { n=split($NF,a,","); for(i=1;i<=n;i++) if (a[i] ~ /^userpw=/) { sub(/^userpw=/,"",a[i]); print a[i] } }' "$manifest" | head -1
}
