# fish completion for helmsman(8)
complete -c helmsman -f -a '(__halyard_complete)'
