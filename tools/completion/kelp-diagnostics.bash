# Completion of kelp-diagnostics for bash. Identifiers and the names of content properties are those of
# the repository that the line names, read when they are asked for.

# What each verb takes: its options, and "=" and what comes behind those that take a value. "-" has what
# stands before the verb.
declare -gA _kelp_diagnostics_options=(
  ["-"]="-C=directory -v --verbose -h --help --help-all"
  ["list"]="-n= --stage=stage --app= --since= --until= --no-legend --json --utc"
  ["show"]="--all-levels --json --utc"
  ["cat"]="--level= --all-levels --force"
  ["create"]="--id= --app= --build= --user= --device= --session= --description= --pid= --process= --library=file --wait= --json"
  ["set"]="--description= --pid= --process= --library=file --consent= --max-consent= --wait="
  ["property add"]="--media-type= --tag= --wait="
  ["property list"]=""
  ["property remove"]="--wait="
  ["property tag"]="--wait="
  ["variation add"]="--overwrite --wait="
  ["variation remove"]="--wait="
  ["attach"]="--name= --overwrite --create --media-type= --wait="
  ["mark"]="--wait="
  ["apply-policy"]="--dry-run --json --wait="
  ["filter"]="--wait="
  ["watch"]="--no-existing -n= --json --utc"
  ["export"]="-o=file --output=file --all-levels --force --wait= --json"
  ["remove"]="--force -y --yes --json"
  ["prune"]="--max-age= --max-count= --max-size= --uploaded-only --dry-run --json --utc"
  ["check"]="--repair --json"
  ["stats"]="--json"
)

# What stands behind each verb, in order; the last one again if it ends with "...".
declare -gA _kelp_diagnostics_arguments=(
  ["show"]="id"
  ["cat"]="id name"
  ["set"]="id"
  ["property add"]="id text type"
  ["property list"]="id"
  ["property remove"]="id name"
  ["property tag"]="id name text..."
  ["variation add"]="id name text text"
  ["variation remove"]="id name text"
  ["attach"]="id name text file"
  ["mark"]="id mark"
  ["apply-policy"]="id"
  ["filter"]="id name text command..."
  ["watch"]="id..."
  ["export"]="id..."
  ["remove"]="id..."
  ["check"]="id..."
)

_kelp_diagnostics_read() {
  local -a place=()
  [[ -n $1 ]] && place=(-C "$1")
  shift
  kelp-diagnostics "${place[@]}" "$@" 2>/dev/null
}

# Puts what can stand for the current word into COMPREPLY. KIND ROOT ID WORD
_kelp_diagnostics_offer() {
  local kind=$1 root=$2 id=$3 word=$4 line
  local -a words=()
  case $kind in
    id) mapfile -t words < <(_kelp_diagnostics_read "$root" list --no-legend | cut -d ' ' -f 1) ;;
    name) mapfile -t words < <(_kelp_diagnostics_read "$root" property list "$id") ;;
    type) words=(file string integer double boolean) ;;
    mark) words=(creation user-interaction data-collection data-policy upload) ;;
    stage) words=(creating collecting awaiting-consent awaiting-policy awaiting-upload uploaded half-made damaged mismatched) ;;
    verb) mapfile -t words < <(printf '%s\n' "${!_kelp_diagnostics_options[@]}" | grep -vxF -e - | cut -d ' ' -f 1 | sort -u) ;;
    file | directory)
      local action=-f
      [[ $kind == directory ]] && action=-d
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen "$action" -- "$word")
      return
      ;;
    command)
      mapfile -t COMPREPLY < <(compgen -c -- "$word")
      return
      ;;
  esac
  for line in "${words[@]}"; do
    [[ -n $line && $line == "$word"* ]] && COMPREPLY+=("$(printf '%q' "$line")")
  done
}

_kelp_diagnostics() {
  COMPREPLY=()
  local word=${COMP_WORDS[COMP_CWORD]} verb="" root="" expects="" option at
  local -a given=()
  # What stands before the current word: the verb, the root, and the arguments of the verb.
  for ((at = 1; at < COMP_CWORD; at++)); do
    local before=${COMP_WORDS[at]}
    if [[ -n $expects ]]; then
      [[ $expects == directory && -z $verb ]] && root=${before/#\~/$HOME}
      expects=""
    elif [[ $before == -- ]]; then
      continue
    elif [[ $before == -* ]]; then
      for option in ${_kelp_diagnostics_options[${verb:--}]-}; do
        [[ $option == "$before="* ]] && expects=${option#*=} && expects=${expects:-text}
      done
    elif [[ -z $verb || $verb == property || $verb == variation ]]; then
      verb=${verb:+$verb }$before
    else
      given+=("$before")
    fi
  done

  if [[ -n $expects ]]; then
    _kelp_diagnostics_offer "$expects" "$root" "" "$word"
  elif [[ $word == -* ]]; then
    for option in ${_kelp_diagnostics_options[${verb:--}]-} --help; do
      [[ ${option%%=*} == "$word"* ]] && COMPREPLY+=("${option%%=*}")
    done
  elif [[ -z $verb ]]; then
    _kelp_diagnostics_offer verb "" "" "$word"
  elif [[ $verb == property || $verb == variation ]]; then
    for option in "${!_kelp_diagnostics_options[@]}"; do
      [[ $option == "$verb $word"* ]] && COMPREPLY+=("${option#* }")
    done
  else
    local -a arguments=()
    read -ra arguments <<<"${_kelp_diagnostics_arguments[$verb]-}"
    [[ ${#arguments[@]} -eq 0 ]] && return
    local kind=${arguments[${#given[@]}]-}
    [[ -z $kind && ${arguments[-1]} == *... ]] && kind=${arguments[-1]}
    _kelp_diagnostics_offer "${kind%...}" "$root" "${given[0]-}" "$word"
  fi
}

complete -F _kelp_diagnostics kelp-diagnostics
