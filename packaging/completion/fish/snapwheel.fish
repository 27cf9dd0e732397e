# fish completion for snapwheel(8)
complete -c snapwheel -f -a '(__halyard_complete)'
