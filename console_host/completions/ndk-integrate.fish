# Completion of ndk-integrate for fish.

# __ndk_integrate COMMANDS OPTION...: completes an option of these commands.
function __ndk_integrate
    complete -c ndk-integrate -n "__fish_seen_subcommand_from $argv[1]" $argv[2..]
end

function __ndk_integrate_tomls
    string match -q -- '*.toml' (commandline -opc); and return
    __fish_complete_suffix .toml | string match -er '^[^\t]*(?:\.toml|/)(?:\t|$)'
end

complete -c ndk-integrate -f
complete -c ndk-integrate -l log -rF -d 'Append the installation log to a file'
complete -c ndk-integrate -l plugin -rF -d 'Load the plug-in from a file'
complete -c ndk-integrate -s v -d 'Show the installation log on standard error'
complete -c ndk-integrate -s q -d 'Print the result and what went wrong, no steps'
complete -c ndk-integrate -s h -l help -d 'Print what the command takes'
complete -c ndk-integrate -l version -d 'Print the version'

set -l none_yet 'not __fish_seen_subcommand_from find check release install undo status verify check-host'
set -l command complete -c ndk-integrate -n $none_yet -a
$command find -d 'Find an NDK, and tell why the others are not good'
$command check -d 'Judge one directory'
$command release -d 'Convert a release to its numbers, and back'
$command install -d 'Integrate an installed compiler package into an Android NDK'
$command undo -d 'Put back the compiler\'s files as they were'
$command status -d 'Tell what is installed of a compiler package'
$command verify -d 'Prove that the NDK builds with the compiler\'s toolchains'
$command check-host -d 'Check a host against what the plug-in relies on'

set -l dirs '(__fish_complete_directories)'
set -l installation 'install undo status verify'
set -l variables 'NDK_PATH= NDK_DEFAULT_SEARCH_PATH_LINUX= NDK_SUPPORTED_VERSIONS='
set -a variables 'NDK_INTEGRATION_ENABLED= NDK_COMPONENT_PATTERNS= VORN_INSTALL_DIR='

__ndk_integrate "find check release check-host $installation" -l json -d 'Print one JSON object'
__ndk_integrate "find check" -l supported -x -d 'Releases that are asked for'
__ndk_integrate "find check" -l read-only -d 'Accept an NDK that you cannot write to'
__ndk_integrate find -l search -xa $dirs -d 'Look in these directories instead of the usual places'
__ndk_integrate find -l project -xa $dirs -d 'Look for what a project pins in a directory and above'
__ndk_integrate find -l no-project -d 'Do not look for what a project pins'
__ndk_integrate find -l all -d 'Judge every directory'
__ndk_integrate find -l newest -d 'Take the newest good one, not the first'
__ndk_integrate find -l prerelease -d 'Take a beta as readily as a release'
__ndk_integrate find -l lock -rF -d 'Write down in a file which NDK was found'
__ndk_integrate find -l locked -rF -d 'Find exactly the NDK that a file says'
__ndk_integrate find -l format -x -d 'Print only this line for the NDK found'
__ndk_integrate check -a $dirs
__ndk_integrate "$installation" -a '(__ndk_integrate_tomls)'
__ndk_integrate "$installation" -l set -xa "$variables" -d 'Override a session variable of the file'
__ndk_integrate "install verify" -l ndk -xa $dirs -d 'Use this NDK'
__ndk_integrate "install undo" -l dry-run -d 'Change nothing, show what would change'
__ndk_integrate "install undo" -l keep-ndk \
    -d 'Do not take the compiler out of the NDK that it was installed for'
__ndk_integrate undo -l force -rF -d 'Put a file back although it was changed by someone else'
__ndk_integrate install -l optional -d 'Where there is nothing to do, that is well'
__ndk_integrate install -l verify -d 'Prove afterwards that the NDK builds with the compiler'
__ndk_integrate verify -l no-build -d 'Only look whether everything is in its place'
__ndk_integrate verify -l keep -xa $dirs -d 'Build in a directory, and keep the projects and their logs'
__ndk_integrate check-host -l library -rF -d 'Load the host check from a file'
__ndk_integrate check-host -l program -rF \
    -d 'Tell from the host\'s program whether the plug-in will load in it'

functions -e __ndk_integrate
