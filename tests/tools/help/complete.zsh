# complete.zsh FOLDER LINE prints the last word of LINE as completion makes it. FOLDER holds the
# completion functions. An interactive zsh is run on a pseudo-terminal, as zsh completes nowhere else.
zmodload zsh/zpty
zpty shell "PS1=; exec zsh -f -i"
zpty -w shell "PS1= PS2=; unset zle_bracketed_paste; fpath=(${(q)1} \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell 'report() { print -r -- "<<${${(z)BUFFER}[-1]}>>"; zle .kill-buffer; zle .accept-line }'
zpty -w shell 'zle -N report; bindkey "^T" report; setopt no_beep no_list_beep'
# Told by the line editor itself, when it takes keys.
zpty -w shell 'zle-line-init() { print -r -- "re""ady" }; zle -N zle-line-init'
local seen
zpty -r shell seen '*ready*'
zpty -w -n shell "$2"$'\t\x14'
while zpty -r shell seen; do
  if [[ $seen == *'<<'*'>>'* ]]; then
    print -r -- "${${seen##*<<}%%>>*}"
    break
  fi
done
zpty -d shell
