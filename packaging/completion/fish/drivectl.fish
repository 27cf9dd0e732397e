# fish completion for drivectl(8)
complete -c drivectl -f -a '(__halyard_complete)'
