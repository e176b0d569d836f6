// The equalization tool: its command dispatcher and its two drivers.
#pragma once

// Sends the command line to the sub-command driver when the first word is one of the nine command
// names, to the mosaic job otherwise. argv is passed on unchanged.
void Main_defaut_arg(int argc, char** argv);
// The default mosaic job: argv[1] onward are the input images and options.
void Main_nouveau(int argc, char** argv);
// The named radiometric sub-commands: argv[1] is the command name.
void Main_walis_new(int argc, char** argv);
