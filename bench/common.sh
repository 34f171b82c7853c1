# Shared by the benchmark scripts; sourced, not run.

# password_for FILE: the user password the corpus manifest ($manifest) gives
# FILE in its traits (userpw=...), or nothing.
password_for() {
  [ -f "$manifest" ] || return 0
  awk -F'\t' -v f="$1" '$1==f { n=split($NF,a,","); for(i=1;i<=n;i++) if (a[i] ~ /^userpw=/) { sub(/^userpw=/,"",a[i]); print a[i] } }' "$manifest" | head -1
}

# need_tools PACKAGE:COMMAND...: installs, on a Debian machine, the package
# of each command that is missing, so a fresh machine can run the benchmark.
need_tools() {
  local missing=() pair
  for pair in "$@"; do
    command -v "${pair#*:}" > /dev/null 2>&1 || missing+=("${pair%%:*}")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}" >&2
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo apt-get update -qq >&2 && DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}
