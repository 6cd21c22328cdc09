"""What happens when a file call fails, is interrupted, or meets a disk that has just changed."""
