// Keeps a target buildable until its first source is there.
