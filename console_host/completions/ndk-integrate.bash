# Completion of ndk-integrate for bash, which bash-completion loads.

_ndk_integrate() {
  local cur prev words cword split
  _init_completion -s || return

  case $prev in
    --log | --plugin | --lock | --locked | --library | --program | --force)
      _filedir
      return
      ;;
    --search | --project | --ndk | --keep)
      _filedir -d
      return
      ;;
    --set)
      compopt -o nospace
      COMPREPLY=($(compgen -S = -W 'NDK_PATH NDK_DEFAULT_SEARCH_PATH_LINUX NDK_SUPPORTED_VERSIONS
        NDK_INTEGRATION_ENABLED NDK_COMPONENT_PATTERNS VORN_INSTALL_DIR' -- "$cur"))
      return
      ;;
    --supported | --format) return ;;
  esac
  $split && return

  local command='' has_argument='' i
  for ((i = 1; i < cword; i++)); do
    case ${words[i]} in
      --log | --plugin | --lock | --locked | --library | --program | --force) ((i++)) ;;
      --search | --project | --ndk | --keep | --set | --supported | --format) ((i++)) ;;
      -*) ;;
      *) if [[ $command ]]; then has_argument=yes; else command=${words[i]}; fi ;;
    esac
  done

  local options='--log --plugin -v -q -h --help --version'
  case $command in
    find)
      options+=' --search --supported --project --no-project --all --newest --prerelease --read-only'
      options+=' --lock --locked --format --json'
      ;;
    check) options+=' --supported --read-only --json' ;;
    release) options+=' --json' ;;
    install) options+=' --ndk --set --dry-run --optional --keep-ndk --verify --json' ;;
    undo) options+=' --set --force --dry-run --keep-ndk --json' ;;
    status) options+=' --set --json' ;;
    verify) options+=' --ndk --set --no-build --keep --json' ;;
    check-host) options+=' --library --program --json' ;;
  esac

  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
  elif [[ ! $command ]]; then
    COMPREPLY=($(compgen -W 'find check release install undo status verify check-host' -- "$cur"))
  elif [[ ! $has_argument ]]; then
    case $command in
      check) _filedir -d ;;
      install | undo | status | verify) _filedir toml ;;
    esac
  fi
} && complete -F _ndk_integrate ndk-integrate
