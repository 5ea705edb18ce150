# Completion of kelp-diagnostics for bash. Identifiers and the names of content properties are those of
# the repository that the line names, read when they are asked for.

# What each verb takes: its options, and "=" and what comes behind those that take a value. "-" has what
# stands before the verb.
declare -gA _kelp_diagnostics_options=(
  ["-"]="-C=directory -v --verbose --version -h --help --help-all"
  ["list"]="-n= --stage=stage --app= --since= --until= --no-legend --json --utc"
  ["show"]="--all-levels --json --utc"
  ["cat"]="--level= --all-levels --force"
  ["create"]="--id= --app= --build= --user= --device= --session= --description= --pid= --process= --library=file --wait= --json"
  ["set"]="--description= --pid= --process= --library=file --consent= --max-consent= --wait="
  ["property add"]="--media-type= --tag= --wait="
  ["property list"]="-0 --null --json"
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

# Takes the quotes of the shell off WORD, and puts what is left into REPLY. Nothing is expanded.
_kelp_diagnostics_unquote() {
  local text=$1 quote="" letter at
  REPLY=""
  for ((at = 0; at < ${#text}; at++)); do
    letter=${text:at:1}
    case "$quote|$letter" in
      "|'" | '|"') quote=$letter ;;
      "'|'" | '"|"') quote="" ;;
      "|\\" | "\"|\\")
        at=$((at + 1))
        # Between quotes it stands for itself in front of most letters.
        [[ -n $quote && ${text:at:1} != [\$\`\"\\] ]] && REPLY+=$letter
        REPLY+=${text:at:1}
        ;;
      *) REPLY+=$letter ;;
    esac
  done
}

# Fills words from COMP_WORDS up to the current word. Readline may have taken them apart at "=" and ":";
# what it does not replace of the current word goes into kept.
_kelp_diagnostics_gather() {
  local piece joins=""
  words=()
  kept=""
  for piece in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if [[ ${#words[@]} -gt 0 && ($piece =~ ^[=:]+$ || -n $joins) ]]; then
      kept=${words[-1]}
      words[-1]+=$piece
      joins=""
      [[ $piece =~ ^[=:]+$ ]] && joins=yes kept=${words[-1]}
    else
      kept=""
      words+=("$piece")
    fi
  done
}

# Notes in root what -C is given.
_kelp_diagnostics_enter() {
  local home=""
  [[ $1 == \~ || $1 == \~/* ]] && home=$HOME
  _kelp_diagnostics_unquote "${1#"${home:+"~"}"}"
  root=$home$REPLY
}

# Notes what an option in front of the current word means for what follows.
_kelp_diagnostics_pass() {
  local option
  if [[ -z $verb && $1 == -C?* ]]; then
    _kelp_diagnostics_enter "${1#-C}"
  fi
  for option in ${_kelp_diagnostics_options[${verb:--}]-}; do
    [[ $option == "$1="* ]] && expects=${option#*=} && expects=${expects:-text}
  done
}

# Reads what stands in front of the current word into verb, root, given (the arguments of the verb), expects
# (what the current word is when it is the value of an option) and marked (whether it is behind "--").
_kelp_diagnostics_parse() {
  local before
  for before in "$@"; do
    if [[ -n $expects ]]; then
      [[ $expects == directory ]] && _kelp_diagnostics_enter "$before"
      expects=""
    elif [[ -z $marked && $before == -- ]]; then
      marked=yes
    elif [[ -z $marked && $before == -?* ]]; then
      _kelp_diagnostics_pass "$before"
    elif [[ -z $verb || $verb == property || $verb == variation ]]; then
      verb=${verb:+$verb }$before
    else
      _kelp_diagnostics_unquote "$before"
      given+=("$REPLY")
    fi
  done
}

# Puts what can stand for WORD into COMPREPLY. KIND WORD
_kelp_diagnostics_offer() {
  local kind=$1 word=$2 line
  local -a found=()
  case $kind in
    id) mapfile -t found < <(_kelp_diagnostics_read "$root" list --no-legend | cut -d ' ' -f 1) ;;
    name) mapfile -d '' -t found < <(_kelp_diagnostics_read "$root" property list --null "${given[0]-}") ;;
    type) found=(file string integer double boolean) ;;
    mark) found=(creation user-interaction data-collection data-policy upload) ;;
    stage) found=(creating collecting awaiting-consent awaiting-policy awaiting-upload uploaded half-made damaged mismatched unreadable) ;;
    verb) mapfile -t found < <(printf '%s\n' "${!_kelp_diagnostics_options[@]}" | grep -vxF -e - | cut -d ' ' -f 1 | sort -u) ;;
    second) mapfile -t found < <(printf '%s\n' "${!_kelp_diagnostics_options[@]}" | sed -n "s/^$verb //p") ;;
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
  _kelp_diagnostics_unquote "$word"
  for line in "${found[@]}"; do
    [[ -n $line && $line == "$REPLY"* ]] && COMPREPLY+=("$(printf '%q' "$line")")
  done
}

# Puts the options that begin with WORD into COMPREPLY.
_kelp_diagnostics_offer_options() {
  local option
  for option in ${_kelp_diagnostics_options[${verb:--}]-} --help; do
    [[ ${option%%=*} == "$1"* ]] && COMPREPLY+=("${option%%=*}")
  done
}

# Puts what the verb takes behind the arguments that are given into COMPREPLY.
_kelp_diagnostics_offer_argument() {
  local -a arguments=()
  read -ra arguments <<<"${_kelp_diagnostics_arguments[$verb]-}"
  [[ ${#arguments[@]} -eq 0 ]] && return
  local kind=${arguments[${#given[@]}]-}
  [[ -z $kind && ${arguments[-1]} == *... ]] && kind=${arguments[-1]}
  _kelp_diagnostics_offer "${kind%...}" "$1"
}

_kelp_diagnostics() {
  COMPREPLY=()
  local word kept="" verb="" root="" expects="" marked="" prefix="" REPLY=""
  local -a words=() given=()
  _kelp_diagnostics_gather
  _kelp_diagnostics_parse "${words[@]:0:${#words[@]}-1}"
  word=${words[-1]}
  if [[ -z $expects && -z $marked && $word == --*=* ]]; then
    prefix=${word%%=*}=
    _kelp_diagnostics_pass "${prefix%=}"
  fi

  if [[ -n $expects ]]; then
    _kelp_diagnostics_offer "$expects" "${word#"$prefix"}"
  elif [[ -z $marked && $word == -* ]]; then
    _kelp_diagnostics_offer_options "$word"
  elif [[ -z $verb ]]; then
    _kelp_diagnostics_offer verb "$word"
  elif [[ $verb == property || $verb == variation ]]; then
    _kelp_diagnostics_offer second "$word"
  else
    _kelp_diagnostics_offer_argument "$word"
  fi
  COMPREPLY=("${COMPREPLY[@]/#/"$prefix"}")
  COMPREPLY=("${COMPREPLY[@]#"$kept"}")
}

complete -F _kelp_diagnostics kelp-diagnostics
