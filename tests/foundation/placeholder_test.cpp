// Cases for the foundation live beside this file, one file per module.
